/*
 * export.h - how the exported interface is declared.
 *
 * Every function of the library has plain C linkage, returns a 32-bit result unless its comment says otherwise
 * and never lets an exception out. The headers need nothing but the C standard headers.
 */
#ifndef QVREADER_EXPORT_H
#define QVREADER_EXPORT_H

#include <stdint.h>

#if defined(__GNUC__)
#define QV_API __attribute__((visibility("default")))
#define QV_PRINTF(nFormat, nFirst) __attribute__((format(printf, nFormat, nFirst)))
#else
#define QV_API
#define QV_PRINTF(nFormat, nFirst)
#endif

#if defined(__cplusplus)
#define QV_NOEXCEPT noexcept
#define QV_BEGIN_DECLS extern "C" {
#define QV_END_DECLS }
#else
#define QV_NOEXCEPT
#define QV_BEGIN_DECLS
#define QV_END_DECLS
#endif

#endif
