// Library blocks: layout, loading checks in their order, saving, the 32-bit form, digests and
// copies.
#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "vix_test_util.h"

namespace {

using vixtest::LibPtr;

uint32_t xor_words(const void* p, uint64_t iSize) {
  uint32_t x = 0;
  for (uint64_t i = 0; i + 4 <= iSize; i += 4) {
    uint32_t w;
    memcpy(&w, static_cast<const char*>(p) + i, 4);
    x ^= w;
  }
  return x;
}

TEST(Layout, RequirementOneWordShortAndExact) {
  struct {
    int iMacros, iMetas, iGroups;
    uint64_t iMeta, iStr, iGroup;
  } const kCases[] = {{1, 0, 0, 0, 0, 0}, {0, 1, 0, 8, 8, 0}, {5, 7, 3, 1000, 333, 480}};
  for (const auto& c : kCases) {
    VIXLIBPARAM p = {};
    p.iMaxMacros = c.iMacros;
    p.iMaxMetas = c.iMetas;
    p.iMaxMacrosGroupNum = c.iGroups;
    p.iMetaSize = c.iMeta;
    p.iStrBufSize = c.iStr;
    p.iMacrosGroupSize = c.iGroup;
    p.iVersion = 4;
    strcpy(p.szName, "lay");
    const uint64_t iNeed64 =
        352 + 32 * c.iMacros + 48 * c.iMetas + 16 * c.iGroups + c.iMeta + c.iStr + c.iGroup;
    const uint64_t iNeed32 =
        276 + 16 * c.iMacros + 24 * c.iMetas + 8 * c.iGroups + c.iMeta + c.iStr + c.iGroup;
    std::vector<uint64_t> block((iNeed64 + 7) / 8 + 1);
    p.iSize = iNeed64 - 4;
    EXPECT_EQ(VIX_ERROR_LIB_PARAM, vix_init_lib(reinterpret_cast<LPVIXMETALIB>(block.data()), &p));
    p.iSize = iNeed64;
    LPVIXMETALIB pstLib = reinterpret_cast<LPVIXMETALIB>(block.data());
    ASSERT_EQ(0, vix_init_lib(pstLib, &p));
    EXPECT_EQ(iNeed64, pstLib->iSize);
    EXPECT_EQ(VIX_MAGIC_WORD, *reinterpret_cast<uint32_t*>(pstLib));
    EXPECT_EQ(64u, pstLib->dwPlatformArch);
    EXPECT_EQ(uint64_t(32 * c.iMacros + 48 * c.iMetas), pstLib->ptrMeta);
    EXPECT_EQ(pstLib->ptrMeta + c.iMeta, pstLib->ptrStrBuf);
    EXPECT_EQ(pstLib->ptrStrBuf + c.iStr + 16 * c.iGroups, pstLib->ptrMacrosGroup);
    EXPECT_EQ(1u, pstLib->iMultiSplitTableKey);
    EXPECT_EQ(VIX_PTR_NONE, pstLib->ptrValueFiledDefinitions);
    EXPECT_EQ(4, vix_get_metalib_version(pstLib));
    EXPECT_STREQ("lay", vix_get_metalib_name(pstLib));

    LPVIXMETALIB32 pstLib32 = reinterpret_cast<LPVIXMETALIB32>(block.data());
    p.iSize = iNeed32 - 4;
    EXPECT_EQ(VIX_ERROR_LIB_PARAM, vix_init_lib_for32(pstLib32, &p));
    p.iSize = iNeed32;
    ASSERT_EQ(0, vix_init_lib_for32(pstLib32, &p));
    EXPECT_EQ(32u, pstLib32->dwPlatformArch);
    EXPECT_EQ(iNeed32, pstLib32->iSize);
    EXPECT_EQ(uint32_t(16 * c.iMacros + 24 * c.iMetas), pstLib32->ptrMeta);
  }
  VIXLIBPARAM p = {};
  p.iSize = 4096;
  std::vector<uint64_t> block(512);
  EXPECT_EQ(VIX_ERROR_LIB_PARAM, vix_init_lib(reinterpret_cast<LPVIXMETALIB>(block.data()), &p));
  EXPECT_EQ(VIX_ERROR_INVALID_PARAM, vix_init_lib(nullptr, &p));
}

// A library file variant and what each loader says about it.
struct LoadCase {
  const char* pszName;
  std::function<void(std::vector<char>&)> fnMutate;
  int iFileRet;
  int iBufRet;
};

void set_u32(std::vector<char>& v, size_t at, uint32_t x) { memcpy(&v[at], &x, 4); }
void set_u64(std::vector<char>& v, size_t at, uint64_t x) { memcpy(&v[at], &x, 8); }
// The checksum over the iSize bytes the header claims (or all there are).
void fix_checksum(std::vector<char>& v) {
  uint64_t iSize;
  memcpy(&iSize, &v[8], 8);
  set_u32(v, 16, 0);
  set_u32(v, 16, xor_words(v.data(), std::min<uint64_t>(iSize, v.size())));
}

TEST(Load, ChecksInOrderFromPathFileAndBuffer) {
  LibPtr lib = vixtest::sample_lib();
  ASSERT_TRUE(lib);
  const std::vector<char> good = vixtest::bytes_of(lib.get());
  const LoadCase kCases[] = {
      {"as built", [](std::vector<char>&) {}, 0, 0},
      {"359 bytes", [](std::vector<char>& v) { v.resize(359); }, VIX_ERROR_BUF_TOO_SHORT,
       VIX_ERROR_BUF_TOO_SHORT},
      {"platform 32", [](std::vector<char>& v) { set_u32(v, 4, 32); }, VIX_ERROR_BUILD_VERSION,
       VIX_ERROR_BUILD_VERSION},
      {"build 10",
       [](std::vector<char>& v) {
         v[2] = 10;
         fix_checksum(v);
       },
       VIX_ERROR_BUILD_VERSION, VIX_ERROR_BUILD_VERSION},
      {"bad checksum", [](std::vector<char>& v) { v[400] ^= 1; }, VIX_ERROR_CHECKSUM,
       VIX_ERROR_CHECKSUM},
      {"short block", [](std::vector<char>& v) { v.resize(v.size() - 8); },
       VIX_ERROR_BAD_METALIB_FILE, VIX_ERROR_BUF_TOO_SHORT},
      {"trailing bytes", [](std::vector<char>& v) { v.resize(v.size() + 5, 'x'); }, 0, 0},
      {"iSize below the header",
       [](std::vector<char>& v) {
         set_u64(v, 8, 360);
         fix_checksum(v);
       },
       VIX_ERROR_BAD_METALIB_FILE, VIX_ERROR_BAD_METALIB_FILE},
  };
  zq_test::TempDir dir("vix_test");
  for (const LoadCase& c : kCases) {
    std::vector<char> bytes = good;
    c.fnMutate(bytes);
    const std::string sPath = dir.file("case.metalib");
    vixtest::write_file(sPath, bytes);

    VIXMETALIB* pstLib = reinterpret_cast<VIXMETALIB*>(0x1);  // untouched on failure
    EXPECT_EQ(c.iFileRet, vix_load_metalib(&pstLib, sPath.c_str())) << c.pszName;
    if (c.iFileRet == 0) {
      EXPECT_EQ(0, memcmp(pstLib, good.data(), good.size())) << c.pszName;
      vix_free_lib(&pstLib);
      EXPECT_EQ(nullptr, pstLib);
    } else {
      EXPECT_EQ(reinterpret_cast<VIXMETALIB*>(0x1), pstLib) << c.pszName;
    }
    FILE* fp = fopen(sPath.c_str(), "rb");
    pstLib = nullptr;
    EXPECT_EQ(c.iFileRet, vix_load_metalib_fp(&pstLib, fp)) << c.pszName;
    vix_free_lib(&pstLib);
    fclose(fp);

    size_t iLen = bytes.size();
    EXPECT_EQ(c.iBufRet, vix_load_metalib_buf(&pstLib, bytes.data(), &iLen)) << c.pszName;
    if (c.iBufRet == 0) {
      EXPECT_EQ(good.size(), iLen) << c.pszName;
    }
    vix_free_lib(&pstLib);
  }
  VIXMETALIB* pstLib = nullptr;
  EXPECT_EQ(VIX_ERROR_OPEN_FILE_READ, vix_load_metalib(&pstLib, dir.file("missing").c_str()));
  EXPECT_EQ(VIX_ERROR_INVALID_PARAM, vix_load_metalib_fp(&pstLib, nullptr));
  size_t iLen = good.size();
  EXPECT_EQ(VIX_ERROR_INVALID_PARAM, vix_load_metalib_buf(nullptr, good.data(), &iLen));
}

TEST(Load, PlatformWordOfAStoredLibrary) {
  LibPtr lib = vixtest::sample_lib();
  const std::vector<char> good = vixtest::bytes_of(lib.get());
  // Any other platform word: the word at 8 is the library's position inside the file.
  std::vector<char> file(24, '\0');
  set_u32(file, 4, 99);
  set_u64(file, 8, 24);
  file.insert(file.end(), good.begin(), good.end());
  zq_test::TempDir dir("vix_test");
  const std::string sPath = dir.file("stored");
  vixtest::write_file(sPath, file);
  VIXMETALIB* pstLib = nullptr;
  ASSERT_EQ(0, vix_load_metalib(&pstLib, sPath.c_str()));
  EXPECT_EQ(5, vix_get_meta_num(pstLib));
  vix_free_lib(&pstLib);
  // The stored library's own platform must then be 64.
  set_u32(file, 24 + 4, 32);
  vixtest::write_file(sPath, file);
  EXPECT_EQ(VIX_ERROR_PLATFORM, vix_load_metalib(&pstLib, sPath.c_str()));
  set_u64(file, 8, file.size() - 8);  // fewer than 16 bytes left
  vixtest::write_file(sPath, file);
  EXPECT_EQ(VIX_ERROR_BAD_METALIB_FILE, vix_load_metalib(&pstLib, sPath.c_str()));
  size_t iLen = file.size();
  EXPECT_EQ(VIX_ERROR_PLATFORM, vix_load_metalib_buf(&pstLib, file.data(), &iLen));
}

TEST(Save, ChecksumRoundTripAndDigest) {
  LibPtr lib = vixtest::sample_lib();
  lib->checksum ^= 0x5a5a;  // stale: saving recomputes it
  zq_test::TempDir dir("vix_test");
  const std::string sPath = dir.file("saved.metalib");
  ASSERT_EQ(0, vix_save_metalib(lib.get(), sPath.c_str()));
  EXPECT_EQ(0u, xor_words(lib.get(), lib->iSize));
  VIXMETALIB* pstBack = nullptr;
  ASSERT_EQ(0, vix_load_metalib(&pstBack, sPath.c_str()));
  EXPECT_EQ(0, memcmp(pstBack, lib.get(), lib->iSize));
  vix_free_lib(&pstBack);
  EXPECT_EQ(VIX_ERROR_OPEN_FILE_WRITE, vix_save_metalib(lib.get(), "/nonexistent/dir/x"));
  FILE* fp = fopen("/dev/full", "wb");
  if (fp != nullptr) {
    EXPECT_EQ(VIX_ERROR_WRITE_FILE, vix_save_metalib_fp(lib.get(), fp));
    fclose(fp);
  }
  // The saved block's digest, checked in memory and on loading: lower-case text only.
  uint8_t abDigest[VIX_MD5_DIGEST_LEN];
  char szDigest[VIX_MD5_STR_LEN];
  vix_md5hash_buffer(abDigest, lib.get(), lib->iSize);
  vix_md5hash2str(abDigest, szDigest, sizeof(szDigest));
  EXPECT_EQ(0, vix_verify_metalib(lib.get(), szDigest));
  std::string sUpper(szDigest);
  for (char& ch : sUpper) ch = static_cast<char>(toupper(ch));
  EXPECT_EQ(VIX_ERROR_DIGEST_MISMATCH, vix_verify_metalib(lib.get(), sUpper.c_str()));
  EXPECT_EQ(VIX_ERROR_DIGEST_MISMATCH,
            vix_verify_metalib(lib.get(), (std::string(szDigest) + "0").c_str()));
  lib->szName[5] ^= 1;
  EXPECT_EQ(VIX_ERROR_DIGEST_MISMATCH, vix_verify_metalib(lib.get(), szDigest));
  lib->szName[5] ^= 1;
  EXPECT_EQ(VIX_ERROR_DIGEST_MISMATCH,
            vix_load_verify_metalib(&pstBack, sPath.c_str(), sUpper.c_str()));
  EXPECT_EQ(nullptr, pstBack);
  ASSERT_EQ(0, vix_load_verify_metalib(&pstBack, sPath.c_str(), szDigest));
  vix_free_lib(&pstBack);
}

// The data block of a 32-bit library, every reference checked against its size.
struct Reader32 {
  const char* pData;
  uint64_t iSize;
  template <typename T>
  const T* at(VIXPTR32 p) const {
    return p <= iSize && sizeof(T) <= iSize - p ? reinterpret_cast<const T*>(pData + p) : nullptr;
  }
  std::string str(VIXPTR32 p) const {
    return p < iSize ? std::string(pData + p, strnlen(pData + p, iSize - p)) : "<outside>";
  }
};

TEST(Save, CompatibleFormHoldsBothLayouts) {
  LibPtr lib = vixtest::sample_lib();
  LPVIXMETALIB32 pstLib32 = nullptr;
  ASSERT_EQ(0, vix_make_lib32(&pstLib32, lib.get()));
  zq_test::TempDir dir("vix_test");
  const std::string sPath = dir.file("both.metalib");
  ASSERT_EQ(0, vix_save_metalib_compatible(pstLib32, lib.get(), sPath.c_str()));

  FILE* fp = fopen(sPath.c_str(), "rb");
  std::vector<char> file(lib->iSize + pstLib32->iSize + 1);
  ASSERT_EQ(file.size() - 1, fread(file.data(), 1, file.size(), fp));
  fclose(fp);
  EXPECT_EQ(0, memcmp(file.data(), lib.get(), lib->iSize));
  VIXMETALIB* pstBack = nullptr;
  ASSERT_EQ(0, vix_load_metalib(&pstBack, sPath.c_str()));  // reads the 64-bit form
  vix_free_lib(&pstBack);

  // The 32-bit form: its own header and checksum, every reference moved to its target.
  const char* p32 = file.data() + lib->iSize;
  EXPECT_EQ(0u, xor_words(p32, pstLib32->iSize));
  const VIXMETALIB32* h = reinterpret_cast<const VIXMETALIB32*>(p32);
  EXPECT_EQ(32u, h->dwPlatformArch);
  EXPECT_EQ(VIX_MAGIC_WORD, *reinterpret_cast<const uint32_t*>(p32));
  EXPECT_EQ(5, h->iCurMetaNum);
  EXPECT_STREQ("sample", h->szName);
  const Reader32 r{p32 + sizeof(VIXMETALIB32), h->iSize - sizeof(VIXMETALIB32)};
  const VIXMETA32* pkg = nullptr;
  for (int i = 0; i < h->iCurMetaNum; ++i) {
    const VIXNAMEENTRY32* n = r.at<VIXNAMEENTRY32>(h->ptrName + 8 * i);
    const VIXIDENTRY32* id = r.at<VIXIDENTRY32>(h->ptrID + 8 * i);
    ASSERT_TRUE(n != nullptr && id != nullptr);
    const VIXMETA* m64 = vix_get_meta_by_name(lib.get(), r.str(n->ptrName).c_str());
    const VIXMETA32* m = r.at<VIXMETA32>(n->ptrMeta);
    ASSERT_TRUE(m64 != nullptr && m != nullptr) << r.str(n->ptrName);
    EXPECT_EQ(n->ptrMeta, m->ptrMeta);
    EXPECT_EQ(r.str(n->ptrName), r.str(m->ptrName));
    EXPECT_EQ(m64->iHUnitSize, m->iHUnitSize);
    EXPECT_EQ(m64->iEntriesNum, m->iEntriesNum);
    ASSERT_NE(nullptr, r.at<VIXMETA32>(id->ptrMeta));
    EXPECT_EQ(id->iID, r.at<VIXMETA32>(id->ptrMeta)->iID);
    if (r.str(m->ptrName) == "Pkg") pkg = m;
  }
  // Pkg: a nested meta, a count member, an index column and a macro group all land right.
  ASSERT_NE(nullptr, pkg);
  const VIXMETAENTRY32* e = reinterpret_cast<const VIXMETAENTRY32*>(pkg + 1);
  const VIXMETA32* head = r.at<VIXMETA32>(e[0].ptrMeta);
  const VIXMETAENTRY32* refer = r.at<VIXMETAENTRY32>(e[2].stRefer.ptrEntry);
  const VIXMETAINDEX32* x = r.at<VIXMETAINDEX32>(pkg->ptrIndexes);
  ASSERT_TRUE(head != nullptr && refer != nullptr && x != nullptr);
  EXPECT_EQ("Head", r.str(head->ptrName));
  EXPECT_EQ("count", r.str(refer->ptrName));
  EXPECT_EQ("byCount", r.str(x->ptrName));
  const VIXDBKEYINFO32* col = r.at<VIXDBKEYINFO32>(x->ptrColumnBase);
  ASSERT_NE(nullptr, col);
  ASSERT_NE(nullptr, r.at<VIXMETAENTRY32>(col->ptrEntry));
  EXPECT_EQ("count", r.str(r.at<VIXMETAENTRY32>(col->ptrEntry)->ptrName));
  const VIXMETAENTRY32* cmd = reinterpret_cast<const VIXMETAENTRY32*>(head + 1) + 1;
  ASSERT_NE(nullptr, r.at<VIXMACROSGROUP32>(cmd->ptrMacrosGroup));
  EXPECT_STREQ("Cmd", r.at<VIXMACROSGROUP32>(cmd->ptrMacrosGroup)->szName);
  vix_free_lib32(&pstLib32);
  EXPECT_EQ(nullptr, pstLib32);
}

TEST(Clone, CapacityAndCopy) {
  LibPtr lib = vixtest::sample_lib();
  std::vector<uint64_t> block(lib->iSize / 8 + 1);
  size_t iRoom = lib->iSize - 1;
  EXPECT_EQ(nullptr, vix_clone_lib(block.data(), &iRoom, lib.get()));
  EXPECT_EQ(lib->iSize, iRoom);
  iRoom = block.size() * 8;
  LPVIXMETALIB pstCopy = vix_clone_lib(block.data(), &iRoom, lib.get());
  ASSERT_NE(nullptr, pstCopy);
  EXPECT_EQ(lib->iSize, iRoom);
  EXPECT_NE(nullptr, vix_get_meta_by_name(pstCopy, "Pkg"));
  EXPECT_EQ(lib->iSize, vix_size(pstCopy));
  EXPECT_EQ(0u, vix_size(nullptr));
  vix_free_lib(nullptr);
}

}  // namespace
