// The calls that write no line while the log is on: ciphers, digest, hashes, the hash table but its traversal, files.

#include "codec_buffers.h"
#include "hash_table.h"
#include "support_log.h"

#include "qvreader/support.h"

#include <gtest/gtest.h>

#include <array>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

using namespace qvtest;

namespace {

class SilentCalls : public Log {
  protected:
    struct Call {
        const char *pszName;
        std::function<void()> call;
    };
    // Each of them writes nothing; a line of a host stands in the log all the same.
    static void expectSilence(const std::vector<Call> &calls)
    {
        for (const Call &row : calls) {
            logOn();
            row.call();
            EXPECT_EQ(rawLog(), "") << row.pszName;
        }
        DPrintLogToFile("line");
        EXPECT_EQ(rawLog(), std::string("  ") + szTime + "  line\r\n");
    }
};

TEST_F(SilentCalls, AreThoseOfTheCiphers)
{
    const Bytes key = bytes("0123456789ABCDEF FEDCBA9876543210");
    const Bytes in = bytes("0011223344556677 8899AABBCCDDEEFF");
    for (const int32_t nKeyLen : {8, 16, 12}) {
        Bytes out(64);
        auto *pszOut = reinterpret_cast<char *>(out.data());
        expectSilence({
            {"EnDES", [&] { EnDES(key.data(), in.data(), out.data()); }},
            {"DeDES", [&] { DeDES(key.data(), in.data(), out.data()); }},
            {"EncryptDES_BYTE", [&] { EncryptDES_BYTE(key.data(), nKeyLen, in.data(), out.data()); }},
            {"DecryptDES_BYTE", [&] { DecryptDES_BYTE(key.data(), nKeyLen, in.data(), out.data()); }},
            {"EncryptDES_HEX", [&] { EncryptDES_HEX(key.data(), nKeyLen, in.data(), pszOut); }},
            {"EncryptDES_HEX null", [&] { EncryptDES_HEX(nullptr, nKeyLen, in.data(), pszOut); }},
            {"DecryptDES_HEX", [&] { DecryptDES_HEX(key.data(), nKeyLen, "0011223344556677", out.data()); }},
            {"DecryptDES_HEX null", [&] { DecryptDES_HEX(nullptr, nKeyLen, "00", out.data()); }},
            {"QV_EncryptDES_BYTE", [&] { QV_EncryptDES_BYTE(key.data(), nKeyLen, in.data(), 16, out.data()); }},
            {"QV_EncryptDES_BYTE null", [&] { QV_EncryptDES_BYTE(nullptr, nKeyLen, in.data(), 16, out.data()); }},
            {"QV_DecryptDES_BYTE", [&] { QV_DecryptDES_BYTE(key.data(), nKeyLen, in.data(), 16, out.data()); }},
            {"QV_DecryptDES_BYTE null", [&] { QV_DecryptDES_BYTE(nullptr, nKeyLen, in.data(), 16, out.data()); }},
            {"QV_TY_EncryptDES_BYTE", [&] { QV_TY_EncryptDES_BYTE(key.data(), nKeyLen, in.data(), 16, out.data()); }},
            {"QV_TY_DecryptDES_BYTE", [&] { QV_TY_DecryptDES_BYTE(key.data(), nKeyLen, in.data(), 16, out.data()); }},
            {"ByteToHex", [&] { ByteToHex(in.data(), 16, pszOut); }},
            {"HexToByte", [&] { HexToByte("0011", 4, out.data()); }},
        });
    }
}

TEST_F(SilentCalls, AreThoseOfTheDigest)
{
    const Bytes data(200, 0x61);
    std::array<uint8_t, 20> digest{};
    Sha1Context context{};
    expectSilence({
        {"sha1_starts", [&] { sha1_starts(&context); }},
        {"sha1_update", [&] { sha1_update(&context, data.data(), 200); }},
        {"sha1_process", [&] { sha1_process(&context, data.data()); }},
        {"sha1_finish", [&] { sha1_finish(&context, digest.data()); }},
        {"xn_sha1", [&] { xn_sha1(data.data(), 200, digest.data()); }},
        {"xn_sha1 null", [&] { xn_sha1(nullptr, 200, digest.data()); }},
    });
}

TEST_F(SilentCalls, AreTheHashes)
{
    std::vector<Call> calls;
    for (const HashFn pfn : {BKDRHash, SDBMHash, RSHash, JSHash, PJWHash, ELFHash, DJBHash, APHash})
        for (const char *psz : {"9F36", "", static_cast<const char *>(nullptr)})
            calls.push_back({psz == nullptr ? "null" : psz, [=] { pfn(psz); }});
    expectSilence(calls);
}

TEST_F(SilentCalls, AreThoseOfTheHashTableButTheTraversal)
{
    HashTable table{};
    int32_t nSlot = 0, nCollisions = 0;
    const auto insert = [&](const char *pszKey, int32_t nMode) { InsertHash(&table, element(pszKey), 1, nMode); };
    expectSilence({
        {"InitHashTable of another size", [&] { InitHashTable(&table, always120, 4); }},
        {"InitHashTable", [&] { InitHashTable(&table, always120, 0); }},
        {"InsertHash", [&] { insert("A", 0); }},
        {"InsertHash of the same key", [&] { insert("A", 0); }},
        {"InsertHash in its place", [&] { insert("A", nReplace); }},
        {"InsertHash of no key", [&] { insert("", 0); }},
        {"FindHash", [&] { FindHash(&table, "A", &nSlot); }},
        {"FindHash of an absent key", [&] { FindHash(&table, "B", &nSlot); }},
        {"SearchHash", [&] { SearchHash(&table, "B", &nSlot, &nCollisions); }},
        {"collision", [&] { collision(&nSlot, 5); }},
        {"InsertHash until the table grows",
         [&] {
             for (int n = 0; table.nSizeIndex == 0 && n < 127; ++n)
                 insert(keyOf(n).c_str(), 0);
         }},
        {"RecreateHashTable", [&] { RecreateHashTable(&table); }},
        {"DestroyHashTable", [&] { DestroyHashTable(&table); }},
        {"InsertHash into no table", [&] { insert("A", 0); }},
    });
}

TEST_F(SilentCalls, AreThoseOfTheFilesButWriteDataToFile)
{
    const std::string sDir = libraryDirectory() + "/files", sFile = sDir + "/file", sCopy = sDir + "/copy";
    const char *pszFile = sFile.c_str(), *pszCopy = sCopy.c_str();
    const std::string sAbsent = sDir + "/no/such";
    const char *pszAbsent = sAbsent.c_str();
    std::filesystem::create_directory(sDir);
    Bytes buf(64);
    auto *pszBuf = reinterpret_cast<char *>(buf.data());
    uint32_t nLen = 0;
    const auto room = [&nLen](uint32_t nRoom) { return nLen = nRoom, &nLen; };
    expectSilence({
        {"WriteFileData", [&] { EXPECT_EQ(WriteFileData(pszFile, buf.data(), 10), 1); }},
        {"WriteFileData, absent", [&] { EXPECT_EQ(WriteFileData(pszAbsent, buf.data(), 10), 0); }},
        {"get_file_size", [&] { EXPECT_EQ(get_file_size(pszFile), 10); }},
        {"get_file_size, absent", [&] { EXPECT_EQ(get_file_size(pszAbsent), -1); }},
        {"ReadFileData", [&] { EXPECT_EQ(ReadFileData(pszFile, buf.data(), room(64)), 0); }},
        {"ReadFileData, no room", [&] { EXPECT_EQ(ReadFileData(pszFile, buf.data(), room(9)), -2); }},
        {"ReadFileData, absent", [&] { EXPECT_EQ(ReadFileData(pszAbsent, buf.data(), room(64)), -1); }},
        {"CopyFile", [&] { EXPECT_EQ(CopyFile(pszFile, pszCopy, 0), 1); }},
        {"CopyFile, there", [&] { EXPECT_EQ(CopyFile(pszFile, pszCopy, 0), 0); }},
        {"CopyFile, absent", [&] { EXPECT_EQ(CopyFile(pszAbsent, pszCopy, 1), 0); }},
        {"PathIsDirectory", [&] { EXPECT_NE(PathIsDirectory(sDir.c_str()), 0); }},
        {"PathIsDirectory, absent", [&] { EXPECT_EQ(PathIsDirectory(pszAbsent), 0); }},
        {"GetBase64DataEx", [&] { EXPECT_EQ(GetBase64DataEx(pszFile, pszBuf), 0); }},
        {"GetBase64DataEx, absent", [&] { EXPECT_EQ(GetBase64DataEx(pszAbsent, pszBuf), -2); }},
        {"GetBase64FromFile", [&] { EXPECT_EQ(GetBase64FromFile(pszFile, pszBuf, room(64)), 0); }},
        {"GetBase64FromFile, no room", [&] { EXPECT_EQ(GetBase64FromFile(pszFile, pszBuf, room(15)), -2); }},
        {"GetBase64FromFile, absent", [&] { EXPECT_EQ(GetBase64FromFile(pszAbsent, pszBuf, room(64)), -1); }},
        {"Remove_Img", [&] { EXPECT_EQ(Remove_Img(pszFile), 0); }},
        {"Remove_Img, absent", [&] { EXPECT_EQ(Remove_Img(pszAbsent), -1); }},
        {"GetTempFilePath", [&] { GetTempFilePath(pszBuf, pszBuf, 64); }},
    });
    std::filesystem::remove_all(sDir);
}

} // namespace
