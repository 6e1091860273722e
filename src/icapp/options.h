// options.h - options that only this library reads.
#pragma once

namespace qv {

bool isFastRead() noexcept;
bool isInfoPowerOff() noexcept;

} // namespace qv
