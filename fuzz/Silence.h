#pragma once

#include "kiv/platform/Console.h"

// What is refused is logged: nobody reads that here.
class Silence : public kiv::internal::OutputSink {
public:
    Silence() { kiv::internal::setStandardOutputSink(this); }
    bool write(std::string_view) override { return true; }
};

inline Silence g_silence;
