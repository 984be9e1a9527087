#include "kiv/core/Buffer.h"
#include "kiv/script/Call.h"
#include "kiv/script/Libraries.h"
#include "kiv/script/SourceCheck.h"
#include "kiv/script/StackGuard.h"

#include <sqstdblob.h>
#include <sqstdio.h>
#include <sqstdstring.h>

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <string>
#include <string_view>

// The engine trusts the arguments of its own functions. Those that corrupt memory on bad ones are replaced by closures
// that look first and then call the original, which they have as their one free variable: on the stack it follows the
// arguments.

namespace kivSq::internal {
namespace {

constexpr SQInteger mostElements = 1 << 26;
constexpr SQInteger mostBytes = 1 << 30;
constexpr SQInteger mostArguments = 10'000;
// Coroutines called by coroutines: each has its own count of native calls, but all share the C stack.
constexpr int deepestThreads = 16;
constexpr SQInteger longestPattern = 1'000; // the compiler of patterns calls itself for each character

SQUserPointer tag(unsigned low) {
    return reinterpret_cast<SQUserPointer>(static_cast<uintptr_t>(SQSTD_STREAM_TYPE_TAG) | low);
}
// As the engine's libraries have them.
const SQUserPointer streamTag = tag(0);
const SQUserPointer fileTag = tag(1);
const SQUserPointer blobTag = tag(2);
// The engine gives patterns none.
char g_patternTag = 0;
const SQUserPointer patternTag = &g_patternTag;

template <class... Arguments>
SQInteger refuse(SQVM* v, fmt::format_string<Arguments...> format, Arguments&&... arguments) {
    return sq_throwerror(v, fmt::format(format, std::forward<Arguments>(arguments)...).c_str());
}

// ---- Arguments. The original complains about wrong types itself.

SQInteger countArguments(SQVM* v) {
    return sq_gettop(v) - 1;
}

bool integerAt(SQVM* v, SQInteger index, SQInteger& out) {
    return index <= countArguments(v) && SQ_SUCCEEDED(sq_getinteger(v, index, &out));
}

bool textAt(SQVM* v, SQInteger index, std::string_view& out) {
    const SQChar* text = nullptr;
    if (index > countArguments(v) || SQ_FAILED(sq_getstring(v, index, &text))) return false;
    out = {text, static_cast<size_t>(sq_getsize(v, index))};
    return true;
}

// Whether it is an instance of that class; `out` is its native object, null for one without.
bool instanceAt(SQVM* v, SQInteger index, SQUserPointer typeTag, SQUserPointer& out) {
    out = nullptr;
    return index <= countArguments(v) && SQ_SUCCEEDED(sq_getinstanceup(v, index, &out, typeTag));
}

SQInteger checkSize(SQVM* v, SQInteger index, const char* what, SQInteger most) {
    SQInteger size = 0;
    if (!integerAt(v, index, size)) return 0;
    if (size < 0) return refuse(v, "{} size {} is negative", what, size);
    return size > most ? refuse(v, "{} size {} is beyond {}", what, size, most) : 0;
}

SQInteger checkConstructed(SQVM* v, SQInteger index, const char* what, SQUserPointer typeTag) {
    SQUserPointer object = nullptr;
    if (!instanceAt(v, index, typeTag, object)) return refuse(v, "this is no {}", what);
    return object ? 0 : refuse(v, "the {} is not constructed", what);
}

SQInteger checkUnconstructed(SQVM* v, const char* what, SQUserPointer typeTag) {
    SQUserPointer object = nullptr;
    if (!instanceAt(v, 1, typeTag, object)) return refuse(v, "this is no {}", what);
    return object ? refuse(v, "the {} is constructed already", what) : 0;
}

// ---- The engine's stack. Natives have 15 free slots, and sq_reservestack() forgets the captured variables of closures
// when it moves the stack. Script calls don't, so a function with many locals makes the room. Not more locals: results
// of calls that go to a slot above 127 miss it.

constexpr const char* growKey = "kiv_growStack";
constexpr int slotsOfGrow = 100;

void installGrow(SQVM* v) {
    const StackGuard guard(v);
    std::string source = "return function(self, calls) {\nlocal a0 = 0";
    for (int i = 1; i < slotsOfGrow; ++i) source += fmt::format(", a{} = 0", i);
    source += "\nif (calls > 0) a0 = self(self, calls - 1)\nreturn a0\n}";
    sq_pushregistrytable(v);
    sq_pushstring(v, growKey, -1);
    sq_compilebuffer(v, source.c_str(), static_cast<SQInteger>(source.size()), "grow", SQTrue);
    sq_pushroottable(v);
    sq_call(v, 1, SQTrue, SQTrue);
    sq_remove(v, -2);
    sq_newslot(v, -3, SQFalse);
}

// For that many values more. False, with the script error set, where the engine can't move its stack.
bool growStack(SQVM* v, SQInteger values) {
    if (values <= 10) return true;
    const StackGuard guard(v);
    sq_pushregistrytable(v);
    sq_pushstring(v, growKey, -1);
    sq_rawget(v, -2);
    sq_pushroottable(v);
    sq_push(v, -2);
    sq_pushinteger(v, values / slotsOfGrow + 1);
    return SQ_SUCCEEDED(sq_call(v, 3, SQFalse, SQFalse));
}

// Calls the original with the same arguments.
SQInteger forward(SQVM* v) {
    const SQInteger count = countArguments(v);
    if (!growStack(v, count)) return SQ_ERROR;
    for (SQInteger i = 1; i <= count; ++i) sq_push(v, i);
    return SQ_SUCCEEDED(sq_call(v, count, SQTrue, SQFalse)) ? 1 : SQ_ERROR;
}

// The replacement: `check` gives 0, or has set the script error.
template <SQInteger (*check)(SQVM*)>
SQInteger guard(SQVM* v) {
    // A bound environment takes the place of the original when there are no arguments at all.
    if (countArguments(v) < 1) return sq_throwerror(v, "wrong number of parameters");
    const SQInteger refusal = check(v);
    return refusal != 0 ? refusal : forward(v);
}

// ---- Arrays.

SQInteger checkArray(SQVM* v) {
    return checkSize(v, 2, "array", mostElements);
}

SQInteger noCheck(SQVM*) {
    return 0;
}

bool areArrayAndFunction(SQVM* v) {
    const SQObjectType callee = countArguments(v) == 2 ? sq_gettype(v, 2) : OT_NULL;
    return sq_gettype(v, 1) == OT_ARRAY && (callee == OT_CLOSURE || callee == OT_NATIVECLOSURE);
}

// Sorts a copy: the original would follow its indices into what the comparison has left of the array.
SQInteger sortArray(SQVM* v) {
    const SQInteger count = countArguments(v);
    if (count < 1 || sq_gettype(v, 1) != OT_ARRAY) return guard<&noCheck>(v);
    sq_clone(v, 1);
    const SQInteger copy = sq_gettop(v);
    sq_push(v, count + 1);
    sq_push(v, copy);
    if (count == 2) sq_push(v, 2);
    if (SQ_FAILED(sq_call(v, count == 2 ? 2 : 1, SQFalse, SQFalse))) return SQ_ERROR;
    sq_clear(v, 1);
    // Not by its elements, which would turn weak references into values.
    sq_getdefaultdelegate(v, OT_ARRAY);
    sq_pushstring(v, "extend", -1);
    sq_rawget(v, -2);
    sq_push(v, 1);
    sq_push(v, copy);
    return SQ_SUCCEEDED(sq_call(v, 2, SQFalse, SQFalse)) ? 0 : SQ_ERROR;
}

// Calls the function in slot 2 with the array and two other slots; only the result stays.
bool callWithArray(SQVM* v, SQInteger first, SQInteger second) {
    sq_push(v, 2);
    sq_push(v, 1);
    sq_push(v, first);
    sq_push(v, second);
    if (SQ_FAILED(sq_call(v, 3, SQTrue, SQFalse))) return false;
    sq_remove(v, -2);
    return true;
}

bool pushElement(SQVM* v, SQInteger index) {
    sq_pushinteger(v, index);
    return SQ_SUCCEEDED(sq_rawget(v, 1));
}

// These two don't call the originals, which keep a reference into the stack while the function can move it.
SQInteger filterArray(SQVM* v) {
    if (!areArrayAndFunction(v)) return guard<&noCheck>(v);
    sq_newarray(v, 0);
    const SQInteger result = sq_gettop(v);
    for (SQInteger i = 0; i < sq_getsize(v, 1) && pushElement(v, i); ++i) {
        sq_pushinteger(v, i);
        if (!callWithArray(v, result + 2, result + 1)) return SQ_ERROR;
        SQBool isKept = SQFalse;
        sq_tobool(v, -1, &isKept);
        sq_settop(v, result + 1);
        if (isKept) {
            sq_arrayappend(v, result);
        } else {
            sq_poptop(v);
        }
    }
    sq_settop(v, result);
    return 1;
}

SQInteger reduceArray(SQVM* v) {
    if (!areArrayAndFunction(v)) return guard<&noCheck>(v);
    if (!pushElement(v, 0)) return 0;
    const SQInteger result = sq_gettop(v);
    for (SQInteger i = 1; i < sq_getsize(v, 1) && pushElement(v, i); ++i) {
        if (!callWithArray(v, result, result + 1)) return SQ_ERROR;
        sq_remove(v, result);
        sq_remove(v, result);
    }
    sq_settop(v, result);
    return 1;
}

// ---- Functions and threads.

SQInteger checkArgumentArray(SQVM* v) {
    if (countArguments(v) != 2 || sq_gettype(v, 2) != OT_ARRAY) return 0;
    const SQInteger count = sq_getsize(v, 2);
    if (count > mostArguments)
        return refuse(v, "a call with {} arguments, at most {} are possible", count, mostArguments);
    // The original has its own 15 slots.
    return count <= 12 || growStack(v, count + 16) ? 0 : SQ_ERROR;
}

SQInteger checkNewThread(SQVM* v) {
    const bool isNative = countArguments(v) == 2 && sq_gettype(v, 2) == OT_NATIVECLOSURE;
    return isNative ? sq_throwerror(v, "a thread needs a script function") : 0;
}

int g_threadDepth = 0;

SQInteger enterThread(SQVM* v) {
    if (g_threadDepth >= deepestThreads) return refuse(v, "threads call each other deeper than {}", deepestThreads);
    ++g_threadDepth;
    const SQInteger result = forward(v);
    --g_threadDepth;
    return result;
}

SQInteger callThread(SQVM* v) {
    SQVM* thread = nullptr;
    if (countArguments(v) >= 1 && SQ_SUCCEEDED(sq_getthread(v, 1, &thread)) &&
        (sq_getvmstate(thread) != SQ_VMSTATE_IDLE || sq_gettop(thread) < 1))
        return sq_throwerror(v, "the thread is running or suspended already");
    return enterThread(v);
}

SQInteger wakeThread(SQVM* v) {
    return enterThread(v);
}

SQInteger checkLevel(SQVM* v) {
    SQInteger level = 0;
    return integerAt(v, 2, level) && level < 0 ? refuse(v, "the stack level {} is negative", level) : 0;
}

// The replacement is a level of its own.
SQInteger getStackInfos(SQVM* v) {
    SQInteger level = 0;
    if (countArguments(v) != 2 || !integerAt(v, 2, level)) return guard<&noCheck>(v);
    if (checkLevel(v) != 0) return SQ_ERROR;
    sq_push(v, 1);
    sq_pushinteger(v, level < mostElements ? level + 1 : level);
    return SQ_SUCCEEDED(sq_call(v, 2, SQTrue, SQFalse)) ? 1 : SQ_ERROR;
}

SQInteger checkRootTable(SQVM* v) {
    const bool isOther = countArguments(v) == 2 && sq_gettype(v, 2) != OT_TABLE;
    return isOther ? sq_throwerror(v, "the root table must be a table") : 0;
}

// ---- Sources.

SQInteger checkSource(SQVM* v) {
    std::string_view source;
    const char* reason = textAt(v, 2, source) ? refuseSource(source.data(), source.size()) : nullptr;
    return reason ? sq_throwerror(v, reason) : 0;
}

// Loads texts only: bytecode is not verified when it is loaded.
SQInteger loadFile(SQVM* v) {
    std::string_view path;
    if (!textAt(v, 2, path)) return sq_throwerror(v, "the path of a script is needed");
    kiv::Buffer content;
    if (!content.loadFromFile(std::string(path).c_str(), false)) return sq_throwerror(v, "cannot open the file");
    std::string_view source(reinterpret_cast<const char*>(content.getBytePointer()), content.getSize());
    if (source.starts_with("\xFA\xFA")) return sq_throwerror(v, "compiled scripts are not loaded from files");
    if (const char* reason = refuseSource(source.data(), source.size())) return sq_throwerror(v, reason);
    source = withoutMark(source);
    SQBool isTold = SQFalse;
    if (countArguments(v) >= 3) sq_getbool(v, 3, &isTold);
    const std::string name(path);
    const auto size = static_cast<SQInteger>(source.size());
    return SQ_SUCCEEDED(sq_compilebuffer(v, source.data(), size, name.c_str(), isTold)) ? 1 : SQ_ERROR;
}

SQInteger doFile(SQVM* v) {
    if (loadFile(v) != 1) return SQ_ERROR;
    sq_push(v, 1);
    return SQ_SUCCEEDED(sq_call(v, 1, SQTrue, SQTrue)) ? 1 : SQ_ERROR;
}

// ---- Blobs and files.

SQInteger checkBlobConstruction(SQVM* v) {
    const SQInteger refusal = checkUnconstructed(v, "blob", blobTag);
    return refusal != 0 ? refusal : checkSize(v, 2, "blob", mostBytes);
}

SQInteger checkBlobSize(SQVM* v) {
    return checkSize(v, 2, "blob", mostBytes);
}

SQInteger cloneBlob(SQVM* v) {
    SQUserPointer object = nullptr;
    if (countArguments(v) != 2 || !instanceAt(v, 2, blobTag, object) || !object)
        return sq_throwerror(v, "the blob is not constructed");
    if (checkUnconstructed(v, "blob", blobTag) != 0) return SQ_ERROR;
    const SQInteger size = sqstd_getblobsize(v, 2);
    sq_push(v, 3); // the constructor
    sq_push(v, 1);
    sq_pushinteger(v, size);
    if (SQ_FAILED(sq_call(v, 2, SQFalse, SQFalse))) return SQ_ERROR;
    SQUserPointer from = nullptr;
    SQUserPointer to = nullptr;
    if (SQ_FAILED(sqstd_getblob(v, 2, &from)) || SQ_FAILED(sqstd_getblob(v, 1, &to))) return SQ_ERROR;
    if (size > 0) std::memcpy(to, from, static_cast<size_t>(size));
    return 0;
}

SQInteger checkBlobReading(SQVM* v) {
    SQUserPointer object = nullptr;
    SQFILE file = nullptr;
    // The original limits the size to the length, which is -1 then.
    if (instanceAt(v, 1, fileTag, object) && object && SQ_SUCCEEDED(sqstd_getfile(v, 1, &file)) && file &&
        sqstd_ftell(file) < 0)
        return sq_throwerror(v, "blobs are not read from a stream without a length");
    return checkSize(v, 2, "blob", mostBytes);
}

SQInteger checkBlobWriting(SQVM* v) {
    SQUserPointer self = nullptr;
    SQUserPointer source = nullptr;
    if (!instanceAt(v, 1, streamTag, self) || !instanceAt(v, 2, blobTag, source)) return 0;
    if (!source) return sq_throwerror(v, "the blob is not constructed");
    return self == source ? sq_throwerror(v, "a blob is not written into itself") : 0;
}

SQInteger checkFileConstruction(SQVM* v) {
    if (const SQInteger refusal = checkUnconstructed(v, "file", fileTag); refusal != 0) return refusal;
    std::string_view mode;
    if (!textAt(v, 3, mode)) return 0;
    // Some systems end the process for others.
    const bool isGood = !mode.empty() && std::string_view("rwa").find(mode[0]) != std::string_view::npos &&
                        mode.size() <= 3 && mode.find_first_not_of("+bt", 1) == std::string_view::npos;
    return isGood ? 0 : refuse(v, "the file mode \"{}\" is unknown", mode);
}

// ---- Texts.

// Of the number that "%f" is to print. The original has room for 100 characters.
SQInteger checkFixedNumber(SQVM* v, SQInteger index) {
    SQFloat number = 0;
    const bool isHuge = index <= countArguments(v) && SQ_SUCCEEDED(sq_getfloat(v, index, &number)) &&
                        std::isfinite(number) && std::fabs(number) >= 1e80;
    return isHuge ? sq_throwerror(v, "the number is too large for %f; use %g") : 0;
}

SQInteger checkFormat(SQVM* v) {
    std::string_view format;
    if (!textAt(v, 2, format)) return 0;
    SQInteger index = 3;
    for (size_t at = format.find('%'); at != std::string_view::npos; at = format.find('%', at)) {
        const size_t end = std::min(format.find_first_not_of("-+ #0123456789.", at + 1), format.size());
        if (end - at > 12) return sq_throwerror(v, "a format has too many flags and digits");
        const char type = end < format.size() ? format[end] : '\0';
        if (type == 'f' && checkFixedNumber(v, index) != 0) return SQ_ERROR;
        if (end == at + 1 && type == '%') --index;
        ++index;
        at = std::min(end + 1, format.size());
    }
    return 0;
}

// The original reserves four characters for each, but writes ten for those beyond ASCII.
SQInteger escapeText(SQVM* v) {
    std::string_view text;
    if (countArguments(v) != 2 || !textAt(v, 2, text)) return guard<&noCheck>(v);
    constexpr std::string_view special("\a\b\t\n\v\f\r\\\"'\0", 11);
    constexpr std::string_view letters("abtnvfr\\\"'0");
    std::string escaped;
    for (const char c : text) {
        const size_t found = special.find(c);
        if (found != std::string_view::npos) {
            escaped += {'\\', letters[found]};
        } else if (c >= ' ' && c <= '~') {
            escaped += c;
        } else {
            escaped += fmt::format("\\x{:02x}", static_cast<unsigned char>(c));
        }
    }
    sq_pushstring(v, escaped.data(), static_cast<SQInteger>(escaped.size()));
    return 1;
}

SQInteger checkPattern(SQVM* v) {
    if (const SQInteger refusal = checkUnconstructed(v, "regexp", patternTag); refusal != 0) return refusal;
    std::string_view pattern;
    if (!textAt(v, 2, pattern)) return 0;
    pattern = pattern.substr(0, pattern.find('\0'));
    if (pattern.empty()) return sq_throwerror(v, "the pattern is empty");
    if (static_cast<SQInteger>(pattern.size()) > longestPattern)
        return refuse(v, "the pattern is longer than {} characters", longestPattern);
    for (size_t i = 0; i < pattern.size(); ++i) {
        if (pattern[i] != '\\') continue;
        ++i;
        const size_t needed = i < pattern.size() && pattern[i] == 'm' ? 3 : 1;
        if (i + needed > pattern.size()) return sq_throwerror(v, "the pattern ends inside of an escape");
    }
    return 0;
}

SQInteger checkSearch(SQVM* v) {
    if (const SQInteger refusal = checkConstructed(v, 1, "regexp", patternTag); refusal != 0) return refusal;
    std::string_view text;
    SQInteger start = 0;
    if (!textAt(v, 2, text) || !integerAt(v, 3, start)) return 0;
    const auto length =
        static_cast<SQInteger>(text.find('\0') == std::string_view::npos ? text.size() : text.find('\0'));
    return start < 0 || start > length ? refuse(v, "the start {} is not inside of the text", start) : 0;
}

// ---- The table.

// What is replaced: in the default delegate of a type, or in the table or class of a path from the root table on.
struct Row {
    SQObjectType type; // OT_NULL for a path
    const char* path;
    const char* name;
    SQFUNCTION function;
    const char* original = nullptr; // where it has another name
};

constexpr Row rows[] = {
    {OT_ARRAY, "", "resize", &callNative<&guard<&checkArray>>},
    {OT_ARRAY, "", "sort", &callNative<&sortArray>},
    {OT_ARRAY, "", "filter", &callNative<&filterArray>},
    {OT_ARRAY, "", "reduce", &callNative<&reduceArray>},
    {OT_CLOSURE, "", "acall", &callNative<&guard<&checkArgumentArray>>},
    {OT_CLOSURE, "", "pacall", &callNative<&guard<&checkArgumentArray>>},
    {OT_THREAD, "", "call", &callNative<&callThread>},
    {OT_THREAD, "", "wakeup", &callNative<&wakeThread>},
    {OT_THREAD, "", "wakeupthrow", &callNative<&wakeThread>},
    {OT_THREAD, "", "getstackinfos", &callNative<&guard<&checkLevel>>},
    {OT_NULL, "", "array", &callNative<&guard<&checkArray>>},
    {OT_NULL, "", "newthread", &callNative<&guard<&checkNewThread>>},
    {OT_NULL, "", "getstackinfos", &callNative<&getStackInfos>},
    {OT_NULL, "", "setroottable", &callNative<&guard<&checkRootTable>>},
    {OT_NULL, "", "compilestring", &callNative<&guard<&checkSource>>},
    {OT_NULL, "stream", "readblob", &callNative<&guard<&checkBlobReading>>},
    {OT_NULL, "stream", "writeblob", &callNative<&guard<&checkBlobWriting>>},
    {OT_NULL, "std", "loadfile", &callNative<&loadFile>},
    {OT_NULL, "std", "dofile", &callNative<&doFile>},
    {OT_NULL, "std.blob", "_cloned", &callNative<&cloneBlob>, "constructor"},
    {OT_NULL, "std.blob", "constructor", &callNative<&guard<&checkBlobConstruction>>},
    {OT_NULL, "std.blob", "resize", &callNative<&guard<&checkBlobSize>>},
    {OT_NULL, "std.blob", "readblob", &callNative<&guard<&checkBlobReading>>},
    {OT_NULL, "std.blob", "writeblob", &callNative<&guard<&checkBlobWriting>>},
    {OT_NULL, "std.file", "constructor", &callNative<&guard<&checkFileConstruction>>},
    {OT_NULL, "std.file", "readblob", &callNative<&guard<&checkBlobReading>>},
    {OT_NULL, "std.file", "writeblob", &callNative<&guard<&checkBlobWriting>>},
    {OT_NULL, "string", "format", &callNative<&guard<&checkFormat>>},
    {OT_NULL, "string", "escape", &callNative<&escapeText>},
    {OT_NULL, "string.regexp", "constructor", &callNative<&guard<&checkPattern>>},
    {OT_NULL, "string.regexp", "search", &callNative<&guard<&checkSearch>>},
    {OT_NULL, "string.regexp", "match", &callNative<&guard<&checkSearch>>},
    {OT_NULL, "string.regexp", "capture", &callNative<&guard<&checkSearch>>},
    {OT_NULL, "string.regexp", "subexpcount", &callNative<&guard<&checkSearch>>},
};

void pushContainer(SQVM* v, const Row& row) {
    if (row.type != OT_NULL) {
        sq_getdefaultdelegate(v, row.type);
        return;
    }
    sq_pushroottable(v);
    for (std::string_view rest = row.path; !rest.empty();) {
        const std::string_view name = rest.substr(0, rest.find('.'));
        sq_pushstring(v, name.data(), static_cast<SQInteger>(name.size()));
        sq_rawget(v, -2);
        rest.remove_prefix(std::min(name.size() + 1, rest.size()));
    }
}

void install(SQVM* v, const Row& row) {
    const StackGuard guard(v);
    pushContainer(v, row);
    sq_pushstring(v, row.name, -1);
    sq_pushstring(v, row.original ? row.original : row.name, -1);
    sq_rawget(v, -3);
    sq_newclosure(v, row.function, 1);
    sq_setnativeclosurename(v, -1, row.name);
    sq_newslot(v, -3, SQFalse);
}

} // namespace

void installGuards(SQVM* v) {
    installGrow(v);
    const StackGuard guard(v);
    pushContainer(v, {OT_NULL, "string.regexp", "", nullptr});
    sq_settypetag(v, -1, patternTag);
    for (const Row& row : rows) install(v, row);
}

} // namespace kivSq::internal
