// unwritten.h - a read's buffer, filled before the read so that what it wrote can be told.
#pragma once

#include "harness.h"

#include <string>

namespace qvtest {

constexpr uint8_t ucUnwritten = 0xC5;

// The buffer up to nLen, in hexadecimal; a complaint where something behind was written.
inline std::string writtenUpTo(const Bytes &buf, size_t nLen)
{
    for (size_t i = nLen; i < buf.size(); ++i) {
        if (buf[i] != ucUnwritten)
            return "byte " + std::to_string(i) + " was written";
    }
    return hex(buf.data(), nLen);
}

} // namespace qvtest
