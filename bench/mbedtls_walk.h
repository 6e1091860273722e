// mbedtls_walk.h - the look-ups of tlv.cpp, written with mbedTLS's ASN.1 reader.
//
// The reader knows tags of one byte. Of a tag of two, the walk takes the first byte and the reader the second.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <mbedtls/asn1.h>
#include <mbedtls/version.h>
#include <string_view>

namespace qvbench {

struct MbedtlsItem {
    const uint8_t *pTag;
    size_t nTag;
    uint8_t *pValue;
    size_t nValue;

    bool is(std::string_view sTag) const { return nTag == sTag.size() && std::memcmp(pTag, sTag.data(), nTag) == 0; }
    bool isTemplate() const { return (*pTag & MBEDTLS_ASN1_CONSTRUCTED) != 0; }
};

// The item at pAt. False: there is none, or it is malformed.
inline bool mbedtlsItem(uint8_t *pAt, const uint8_t *pEnd, MbedtlsItem &item)
{
    constexpr uint8_t ucLongTag = 0x1F;
    item.pTag = pAt;
    if (pEnd - pAt >= 2 && (*pAt & ucLongTag) == ucLongTag)
        ++pAt;
    if (pAt >= pEnd || mbedtls_asn1_get_tag(&pAt, pEnd, &item.nValue, *pAt) != 0)
        return false;
    item.nTag = (*item.pTag & ucLongTag) == ucLongTag ? 2 : 1;
    item.pValue = pAt;
    return true;
}

// Among the items of one level.
inline bool mbedtlsFind(std::string_view sTag, uint8_t *pAt, const uint8_t *pEnd, MbedtlsItem &item)
{
    for (; mbedtlsItem(pAt, pEnd, item); pAt = item.pValue + item.nValue)
        if (item.is(sTag))
            return true;
    return false;
}

// Also inside templates.
inline bool mbedtlsScan(std::string_view sTag, uint8_t *pAt, const uint8_t *pEnd, MbedtlsItem &item)
{
    for (; mbedtlsItem(pAt, pEnd, item); pAt = item.isTemplate() ? item.pValue : item.pValue + item.nValue)
        if (item.is(sTag))
            return true;
    return false;
}

} // namespace qvbench
