#include "kiv/core/String.h"

#include <cstdlib>
#include <iterator>

// Any bytes convert to valid UTF-8, and what came in whole goes out again.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static constexpr const char* charsets[] = {"UTF-8",  "UTF-16",     "UTF-16BE", "UTF-32LE",    "UTF-32",
                                               "latin9", "ISO-8859-8", "GB18030",  "Shift_JIS",   "EUC-JP",
                                               "EUC-KR", "Big5",       "UTF-7",    "ISO-2022-JP", "windows-1258"};
    if (size == 0) return 0;
    const char* const charset = charsets[data[0] % std::size(charsets)];
    const kiv::String bytes(reinterpret_cast<const char*>(data + 1), size - 1);
    kiv::String text = bytes;
    if (!text.utf8_convert_from_charset(charset) || !text.validate()) std::abort();
    kiv::String again = text;
    if (!again.utf8_convert_to_charset(charset) || !again.utf8_convert_from_charset(charset)) std::abort();
    // Only Unicode's own forms hold every text; the others may have replaced U+FFFD by "?".
    if (charset[0] == 'U' && charset[4] != '7' && again != text) std::abort();
    return 0;
}
