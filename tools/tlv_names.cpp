// ISO 7816-4 and 7816-6, EMV Books 1 and 3, EMV Contactless Books B and C, PBOC (JR/T 0025).
#include "tlv_names.h"

#include <algorithm>
#include <iterator>

namespace qvtool {

namespace {

enum class Format { bytes, text };

struct TagRow {
    uint32_t nTag;
    Format format;
    const char *pszName;
};

constexpr Format text = Format::text;
constexpr Format raw = Format::bytes;

constexpr TagRow tagTable[] = {
    {0x42, raw, "Issuer Identification Number (IIN)"},
    {0x4F, raw, "Application Identifier (AID), card"},
    {0x50, text, "Application Label"},
    {0x51, raw, "File Reference"},
    {0x52, raw, "Command to Perform"},
    {0x53, raw, "Discretionary Data"},
    {0x56, text, "Track 1 Data"},
    {0x57, raw, "Track 2 Equivalent Data"},
    {0x5A, raw, "Application Primary Account Number (PAN)"},
    {0x5F20, text, "Cardholder Name"},
    {0x5F24, raw, "Application Expiration Date"},
    {0x5F25, raw, "Application Effective Date"},
    {0x5F28, raw, "Issuer Country Code"},
    {0x5F2A, raw, "Transaction Currency Code"},
    {0x5F2D, text, "Language Preference"},
    {0x5F30, raw, "Service Code"},
    {0x5F34, raw, "Application PAN Sequence Number"},
    {0x5F36, raw, "Transaction Currency Exponent"},
    {0x5F50, text, "Issuer URL"},
    {0x5F53, raw, "International Bank Account Number (IBAN)"},
    {0x5F54, text, "Bank Identifier Code (BIC)"},
    {0x5F55, text, "Issuer Country Code (two letters)"},
    {0x5F56, text, "Issuer Country Code (three letters)"},
    {0x5F57, raw, "Account Type"},
    {0x61, raw, "Application Template"},
    {0x62, raw, "File Control Parameters (FCP) Template"},
    {0x64, raw, "File Management Data (FMD) Template"},
    {0x65, raw, "Cardholder Related Data"},
    {0x66, raw, "Card Data"},
    {0x6F, raw, "File Control Information (FCI) Template"},
    {0x70, raw, "READ RECORD Response Template"},
    {0x71, raw, "Issuer Script Template 1"},
    {0x72, raw, "Issuer Script Template 2"},
    {0x73, raw, "Directory Discretionary Template"},
    {0x77, raw, "Response Message Template Format 2"},
    {0x7D, raw, "Secure Messaging Template"},
    {0x80, raw, "Response Message Template Format 1"},
    {0x81, raw, "Amount, Authorised (Binary)"},
    {0x82, raw, "Application Interchange Profile (AIP)"},
    {0x83, raw, "Command Template"},
    {0x84, text, "Dedicated File (DF) Name"},
    {0x86, raw, "Issuer Script Command"},
    {0x87, raw, "Application Priority Indicator"},
    {0x88, raw, "Short File Identifier (SFI)"},
    {0x89, text, "Authorisation Code"},
    {0x8A, text, "Authorisation Response Code"},
    {0x8C, raw, "Card Risk Management Data Object List 1 (CDOL1)"},
    {0x8D, raw, "Card Risk Management Data Object List 2 (CDOL2)"},
    {0x8E, raw, "Cardholder Verification Method (CVM) List"},
    {0x8F, raw, "Certification Authority Public Key Index"},
    {0x90, raw, "Issuer Public Key Certificate"},
    {0x91, raw, "Issuer Authentication Data"},
    {0x92, raw, "Issuer Public Key Remainder"},
    {0x93, raw, "Signed Static Application Data"},
    {0x94, raw, "Application File Locator (AFL)"},
    {0x95, raw, "Terminal Verification Results (TVR)"},
    {0x97, raw, "Transaction Certificate Data Object List (TDOL)"},
    {0x98, raw, "Transaction Certificate (TC) Hash Value"},
    {0x99, raw, "Transaction PIN Data"},
    {0x9A, raw, "Transaction Date"},
    {0x9B, raw, "Transaction Status Information (TSI)"},
    {0x9C, raw, "Transaction Type"},
    {0x9D, raw, "Directory Definition File (DDF) Name"},
    {0x9F01, raw, "Acquirer Identifier"},
    {0x9F02, raw, "Amount, Authorised (Numeric)"},
    {0x9F03, raw, "Amount, Other (Numeric)"},
    {0x9F04, raw, "Amount, Other (Binary)"},
    {0x9F05, raw, "Application Discretionary Data"},
    {0x9F06, raw, "Application Identifier (AID), terminal"},
    {0x9F07, raw, "Application Usage Control"},
    {0x9F08, raw, "Application Version Number, card"},
    {0x9F09, raw, "Application Version Number, terminal"},
    {0x9F0A, raw, "Application Selection Registered Proprietary Data"},
    {0x9F0B, text, "Cardholder Name Extended"},
    {0x9F0C, raw, "Issuer Discretionary Data of the FCI"},
    {0x9F0D, raw, "Issuer Action Code - Default"},
    {0x9F0E, raw, "Issuer Action Code - Denial"},
    {0x9F0F, raw, "Issuer Action Code - Online"},
    {0x9F10, raw, "Issuer Application Data"},
    {0x9F11, raw, "Issuer Code Table Index"},
    {0x9F12, text, "Application Preferred Name"},
    {0x9F13, raw, "Last Online ATC Register"},
    {0x9F14, raw, "Lower Consecutive Offline Limit"},
    {0x9F15, raw, "Merchant Category Code"},
    {0x9F16, text, "Merchant Identifier"},
    {0x9F17, raw, "PIN Try Counter"},
    {0x9F18, raw, "Issuer Script Identifier"},
    {0x9F1A, raw, "Terminal Country Code"},
    {0x9F1B, raw, "Terminal Floor Limit"},
    {0x9F1C, text, "Terminal Identification"},
    {0x9F1D, raw, "Terminal Risk Management Data"},
    {0x9F1E, text, "Interface Device (IFD) Serial Number"},
    {0x9F1F, text, "Track 1 Discretionary Data"},
    {0x9F20, raw, "Track 2 Discretionary Data"},
    {0x9F21, raw, "Transaction Time"},
    {0x9F22, raw, "Certification Authority Public Key Index, terminal"},
    {0x9F23, raw, "Upper Consecutive Offline Limit"},
    {0x9F26, raw, "Application Cryptogram"},
    {0x9F27, raw, "Cryptogram Information Data"},
    {0x9F2D, raw, "ICC PIN Encipherment Public Key Certificate"},
    {0x9F2E, raw, "ICC PIN Encipherment Public Key Exponent"},
    {0x9F2F, raw, "ICC PIN Encipherment Public Key Remainder"},
    {0x9F32, raw, "Issuer Public Key Exponent"},
    {0x9F33, raw, "Terminal Capabilities"},
    {0x9F34, raw, "Cardholder Verification Method (CVM) Results"},
    {0x9F35, raw, "Terminal Type"},
    {0x9F36, raw, "Application Transaction Counter (ATC)"},
    {0x9F37, raw, "Unpredictable Number"},
    {0x9F38, raw, "Processing Options Data Object List (PDOL)"},
    {0x9F39, raw, "Point-of-Service (POS) Entry Mode"},
    {0x9F3A, raw, "Amount, Reference Currency"},
    {0x9F3B, raw, "Application Reference Currency"},
    {0x9F3C, raw, "Transaction Reference Currency Code"},
    {0x9F3D, raw, "Transaction Reference Currency Exponent"},
    {0x9F40, raw, "Additional Terminal Capabilities"},
    {0x9F41, raw, "Transaction Sequence Counter"},
    {0x9F42, raw, "Application Currency Code"},
    {0x9F43, raw, "Application Reference Currency Exponent"},
    {0x9F44, raw, "Application Currency Exponent"},
    {0x9F45, raw, "Data Authentication Code"},
    {0x9F46, raw, "ICC Public Key Certificate"},
    {0x9F47, raw, "ICC Public Key Exponent"},
    {0x9F48, raw, "ICC Public Key Remainder"},
    {0x9F49, raw, "Dynamic Data Authentication Data Object List (DDOL)"},
    {0x9F4A, raw, "Static Data Authentication Tag List"},
    {0x9F4B, raw, "Signed Dynamic Application Data"},
    {0x9F4C, raw, "ICC Dynamic Number"},
    {0x9F4D, raw, "Log Entry"},
    {0x9F4E, text, "Merchant Name and Location"},
    {0x9F4F, raw, "Log Format"},
    {0x9F51, raw, "Application Currency Code (PBOC)"},
    {0x9F52, raw, "Application Default Action (PBOC)"},
    {0x9F53, raw, "Consecutive Transaction Limit, International (PBOC)"},
    {0x9F54, raw, "Cumulative Total Transaction Amount Limit (PBOC)"},
    {0x9F55, raw, "Geographic Indicator (PBOC)"},
    {0x9F56, raw, "Issuer Authentication Indicator (PBOC)"},
    {0x9F57, raw, "Issuer Country Code (PBOC)"},
    {0x9F58, raw, "Consecutive Transaction Limit, Lower (PBOC)"},
    {0x9F59, raw, "Consecutive Transaction Limit, Upper (PBOC)"},
    {0x9F5B, raw, "Issuer Script Results, terminal"},
    {0x9F5C, raw, "Cumulative Total Transaction Amount Limit, Upper (PBOC)"},
    {0x9F5D, raw, "Available Offline Spending Amount"},
    {0x9F61, text, "Cardholder Identification Number (PBOC)"},
    {0x9F62, raw, "Cardholder Identification Type (PBOC)"},
    {0x9F63, raw, "Product Identification (PBOC)"},
    {0x9F66, raw, "Terminal Transaction Qualifiers (TTQ)"},
    {0x9F6B, raw, "Card CVM Limit"},
    {0x9F6C, raw, "Card Transaction Qualifiers (CTQ)"},
    {0x9F6D, raw, "Electronic Cash Reset Threshold (PBOC)"},
    {0x9F6E, raw, "Form Factor Indicator"},
    {0x9F72, raw, "Consecutive Transaction Limit, Country (PBOC)"},
    {0x9F74, text, "Electronic Cash Issuer Authorisation Code (PBOC)"},
    {0x9F75, raw, "Cumulative Total Transaction Amount Limit, Dual Currency (PBOC)"},
    {0x9F76, raw, "Secondary Application Currency Code (PBOC)"},
    {0x9F77, raw, "Electronic Cash Balance Limit (PBOC)"},
    {0x9F78, raw, "Electronic Cash Single Transaction Limit (PBOC)"},
    {0x9F79, raw, "Electronic Cash Balance (PBOC)"},
    {0x9F7A, raw, "Electronic Cash Terminal Support Indicator (PBOC)"},
    {0x9F7B, raw, "Electronic Cash Terminal Transaction Limit (PBOC)"},
    {0x9F7C, raw, "Customer Exclusive Data"},
    {0x9F7D, raw, "Application Specific Transparent Template"},
    {0xA5, raw, "FCI Proprietary Template"},
    {0xBF0C, raw, "FCI Issuer Discretionary Data"},
    {0xDF31, raw, "Issuer Script Results"},
    {0xDF4D, raw, "Electronic Cash Log Entry, load (PBOC)"},
    {0xDF4F, raw, "Log Format, load (PBOC)"},
    {0xDF69, raw, "SM Algorithm Support Indicator (PBOC)"},
};

// Within the template 62.
constexpr TagRow controlTable[] = {
    {0x80, raw, "File Size, data"},
    {0x81, raw, "File Size, all"},
    {0x82, raw, "File Descriptor"},
    {0x83, raw, "File Identifier"},
    {0x85, raw, "Proprietary Information"},
    {0x86, raw, "Security Attribute, proprietary"},
    {0x87, raw, "FCI Extension File"},
    {0x88, raw, "Short File Identifier (SFI)"},
    {0x8A, raw, "Life Cycle Status"},
    {0x8B, raw, "Security Attribute, referenced"},
    {0x8C, raw, "Security Attribute, compact"},
    {0x8D, raw, "Security Environment File"},
    {0xA5, raw, "Proprietary Information"},
    {0xAB, raw, "Security Attribute, expanded"},
};

constexpr bool hasEachOnce(const auto &table)
{
    for (auto row = std::begin(table); row != std::end(table); ++row)
        if (std::any_of(std::begin(table), row, [&](const TagRow &other) { return other.nTag == row->nTag; }))
            return false;
    return true;
}
static_assert(hasEachOnce(tagTable) && hasEachOnce(controlTable));

const TagRow *rowOf(const auto &table, uint32_t nTag)
{
    const auto row =
        std::find_if(std::begin(table), std::end(table), [&](const TagRow &other) { return other.nTag == nTag; });
    return row != std::end(table) ? row : nullptr;
}

} // namespace

TagName tagName(BytesView tag, BytesView parent)
{
    constexpr uint8_t ucControlParameters = 0x62;
    uint32_t nTag = 0;
    for (const uint8_t uc : tag)
        nTag = nTag << 8 | uc;
    const TagRow *pRow = nullptr;
    if (parent.size() == 1 && parent[0] == ucControlParameters)
        pRow = rowOf(controlTable, nTag);
    if (pRow == nullptr)
        pRow = rowOf(tagTable, nTag);
    return pRow != nullptr ? TagName{pRow->pszName, pRow->format == text} : TagName{nullptr, false};
}

} // namespace qvtool
