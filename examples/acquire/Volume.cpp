#include "Volume.h"

#include "PgmFile.h"
#include "examples/study/ScriptTable.h"

#include <crc32c/crc32c.h>

#include <thread>

std::string Volume::open(const Options& options) {
    PgmFile image;
    m_geometry.tileSize = options.tileSize;
    m_pace = std::chrono::milliseconds(options.pace);
    if (options.image.empty()) {
        m_geometry.width = m_geometry.height = options.size;
        m_geometry.slices = options.slices;
        m_geometry.maximum = options.bits == 8 ? 0xFF : 0xFFF; // 12 bits, as many detectors have them
        m_phantom.emplace(options.size, options.slices, m_geometry.maximum, options.oversampling);
    } else {
        if (const std::string why = image.read(options.image); !why.empty())
            return options.image + " is not sent: " + why;
        m_geometry.width = image.width;
        m_geometry.height = image.height;
        m_geometry.slices = 1;
        m_geometry.maximum = image.maximum;
    }
    if (!m_geometry.isValid()) return "a study of this size is not sent";
    m_samples = std::move(image.samples);
    m_samples.resize(static_cast<size_t>(m_geometry.getBytes()));
    m_hasSlice.assign(m_geometry.slices, !m_phantom);
    return {};
}

kiv::Item Volume::describe() const {
    return makeTable({{"device", "acquire"}, {"kind", getKind()}, {"series", 1}});
}

const uint8_t* Volume::acquireSlice(uint32_t slice) {
    const auto begin = std::chrono::steady_clock::now();
    const uint8_t* samples = getSlice(slice);
    std::this_thread::sleep_until(begin + m_pace);
    return samples;
}

const uint8_t* Volume::getSlice(uint32_t slice) {
    uint8_t* const samples = m_samples.data() + m_geometry.getSliceBytes() * slice;
    if (!m_hasSlice[slice]) {
        if (m_geometry.getSampleSize() == 2)
            m_phantom->drawSlice(slice, reinterpret_cast<uint16_t*>(samples), m_noise);
        else
            m_phantom->drawSlice(slice, samples, m_noise);
        m_hasSlice[slice] = true;
    }
    return samples;
}

uint32_t Volume::getChecksum() {
    for (uint32_t slice = 0; slice < m_geometry.slices; ++slice) getSlice(slice);
    return crc32c::Crc32c(m_samples.data(), m_samples.size());
}
