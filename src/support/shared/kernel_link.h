// kernel_link.h - finds the functions of the EMV kernel that the host loads beside this library.
#pragma once

namespace qv {

// Address of a kernel function, null when no kernel offers it at this moment. Nothing is remembered: a kernel may be
// loaded late or go away. pWeak: the address that the loader bound when it loaded this library, or null.
void *kernelFunction(const char *pszName, void *pWeak) noexcept;

} // namespace qv
