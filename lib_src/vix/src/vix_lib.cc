// Library blocks: laying out an empty library, copying, releasing, loading from a file or a
// buffer, saving, the XOR checksum and the MD5 digest check.
#include <stdlib.h>

#include <initializer_list>

#include "vix/vix_metalib.h"
#include "vix_internal.h"

namespace {

// Widths of the two layouts: header, macro record, ID / name / map record.
struct LayoutWidths {
  uint64_t iHeader;
  uint64_t iMacro;
  uint64_t iTable;
};
constexpr LayoutWidths kLayout64 = {sizeof(VIXMETALIB), sizeof(VIXMACRO), sizeof(VIXIDENTRY)};
constexpr LayoutWidths kLayout32 = {sizeof(VIXMETALIB32), sizeof(VIXMACRO32), sizeof(VIXIDENTRY32)};

// Area offsets (from the data start) of a library laid out from a parameter record.
struct Areas {
  uint64_t ptrID, ptrName, ptrMap, ptrMeta, ptrStrBuf, ptrMacroGroupMap, ptrMacrosGroup;
  uint64_t iRequired;  // bytes of the whole block, header included
};

// Checks the parameter record and computes the areas; 0 or the layout's code.
int plan_areas_i(const VIXLIBPARAM* pstParam, const LayoutWidths& w, Areas* pstAreas) {
  if (pstParam->iMaxMacros < 1 && pstParam->iMaxMetas < 1) return VIX_ERROR_LIB_PARAM;
  if (pstParam->iMaxMacros < 0 || pstParam->iMaxMetas < 0 || pstParam->iMaxMacrosGroupNum < 0) {
    return VIX_ERROR_LIB_PARAM;
  }
  const uint64_t m = static_cast<uint64_t>(pstParam->iMaxMacros);
  const uint64_t n = static_cast<uint64_t>(pstParam->iMaxMetas);
  const uint64_t g = static_cast<uint64_t>(pstParam->iMaxMacrosGroupNum);
  Areas a;
  a.ptrID = w.iMacro * m;
  a.ptrName = a.ptrID + w.iTable * n;
  a.ptrMap = a.ptrName + w.iTable * n;
  a.ptrMeta = a.ptrMap + w.iTable * n;
  // The three area sizes are 64-bit: add them one at a time against the room so nothing wraps.
  uint64_t iRoom = pstParam->iSize;
  uint64_t iUsed = w.iHeader + a.ptrMeta + w.iTable * g;
  if (iUsed > iRoom) return VIX_ERROR_LIB_PARAM;
  for (uint64_t iArea : {pstParam->iMetaSize, pstParam->iStrBufSize, pstParam->iMacrosGroupSize}) {
    if (iArea > iRoom - iUsed) return VIX_ERROR_LIB_PARAM;
    iUsed += iArea;
  }
  a.ptrStrBuf = a.ptrMeta + pstParam->iMetaSize;
  a.ptrMacroGroupMap = a.ptrStrBuf + pstParam->iStrBufSize;
  a.ptrMacrosGroup = a.ptrMacroGroupMap + w.iTable * g;
  a.iRequired = iUsed;
  *pstAreas = a;
  return 0;
}

template <typename Lib>
void fill_header_i(Lib* pstLib, const VIXLIBPARAM* pstParam, uint32_t dwPlatform) {
  memset(pstLib, 0, pstParam->iSize);
  pstLib->wMagic = VIX_MAGIC;
  pstLib->nBuild = VIX_BUILD;
  pstLib->dwPlatformArch = dwPlatform;
  pstLib->iID = pstParam->iID;
  pstLib->iVersion = pstParam->iVersion;
  pstLib->iXMLTagSetVer = pstParam->iTagSetVersion;
  pstLib->iMaxMacroNum = pstParam->iMaxMacros;
  pstLib->iMaxMetaNum = pstParam->iMaxMetas;
  pstLib->iMaxMacrosGroupNum = pstParam->iMaxMacrosGroupNum;
  const size_t iName = strnlen(pstParam->szName, VIX_NAME_LEN - 1);
  memcpy(pstLib->szName, pstParam->szName, iName);
  pstLib->szName[iName] = '\0';
}

// Reads a little-endian 64-bit value from any address.
uint64_t read_u64_i(const void* p) {
  uint64_t v;
  memcpy(&v, p, sizeof(v));
  return v;
}

uint32_t read_u32_i(const void* p) {
  uint32_t v;
  memcpy(&v, p, sizeof(v));
  return v;
}

// The checks every loader runs on a block read into the heap (at least 16 bytes, iAvail
// readable): the block's iSize, the format word, the platform, the checksum, then the offsets.
int check_loaded_i(const VIXMETALIB* pstLib, uint64_t iAvail) {
  if (pstLib->iSize > iAvail) {
    vix_set_error_detail_i("; the library claims %llu bytes, only %llu were read",
                           static_cast<unsigned long long>(pstLib->iSize),
                           static_cast<unsigned long long>(iAvail));
    return VIX_ERROR_BAD_METALIB_FILE;
  }
  if (read_u32_i(pstLib) != VIX_MAGIC_WORD) return VIX_ERROR_BUILD_VERSION;
  if (pstLib->dwPlatformArch != VIX_PLATFORM_64) return VIX_ERROR_PLATFORM;
  if (pstLib->nBuild > 9 && vix_xor_words_i(pstLib, pstLib->iSize) != 0) return VIX_ERROR_CHECKSUM;
  return vix_check_lib_i(pstLib, iAvail);
}

int write_block_i(const void* pvBlock, uint64_t iSize, FILE* fp) {
  if (fwrite(pvBlock, 1, iSize, fp) != iSize) return VIX_ERROR_WRITE_FILE;
  return 0;
}

}  // namespace

uint32_t vix_xor_words_i(const void* pvBlock, uint64_t iSize) {
  const char* p = static_cast<const char*>(pvBlock);
  uint32_t dwXor = 0;
  for (uint64_t i = 0; i + 4 <= iSize; i += 4) dwXor ^= read_u32_i(p + i);
  return dwXor;
}

int vix_init_lib_for64(LPVIXMETALIB pstLib, const VIXLIBPARAM* pstParam) {
  if (pstLib == nullptr || pstParam == nullptr) return VIX_ERROR_INVALID_PARAM;
  Areas a;
  const int iRet = plan_areas_i(pstParam, kLayout64, &a);
  if (iRet != 0) return iRet;
  fill_header_i(pstLib, pstParam, VIX_PLATFORM_64);
  pstLib->iSize = pstParam->iSize;
  pstLib->iMacrosGroupSize = pstParam->iMacrosGroupSize;
  pstLib->iFreeStrBufSize = pstParam->iStrBufSize;
  pstLib->iFlag = static_cast<uint64_t>(static_cast<int64_t>(pstParam->iResFlag));
  pstLib->iMultiSplitTableKey = 1;
  pstLib->iReserve3 = static_cast<uint64_t>(-1);
  pstLib->ptrValueFiledDefinitionsMap = VIX_PTR_NONE;
  pstLib->ptrValueFiledDefinitions = VIX_PTR_NONE;
  pstLib->ptrMacro = 0;
  pstLib->ptrID = a.ptrID;
  pstLib->ptrName = a.ptrName;
  pstLib->ptrMap = a.ptrMap;
  pstLib->ptrMeta = a.ptrMeta;
  pstLib->ptrLaseMeta = a.ptrMeta;
  pstLib->ptrStrBuf = a.ptrStrBuf;
  pstLib->ptrFreeStrBuf = a.ptrStrBuf;
  pstLib->ptrMacroGroupMap = a.ptrMacroGroupMap;
  pstLib->ptrMacrosGroup = a.ptrMacrosGroup;
  return 0;
}

int vix_init_lib(LPVIXMETALIB pstLib, const VIXLIBPARAM* pstParam) {
  return vix_init_lib_for64(pstLib, pstParam);
}

int vix_init_lib_for32(LPVIXMETALIB32 pstLib, const VIXLIBPARAM* pstParam) {
  if (pstLib == nullptr || pstParam == nullptr) return VIX_ERROR_INVALID_PARAM;
  Areas a;
  const int iRet = plan_areas_i(pstParam, kLayout32, &a);
  if (iRet != 0) return iRet;
  // Every size and offset of this layout is 32 bits wide.
  if (pstParam->iSize > UINT32_MAX) return VIX_ERROR_LIB_PARAM;
  fill_header_i(pstLib, pstParam, VIX_PLATFORM_32);
  pstLib->iSize = static_cast<uint32_t>(pstParam->iSize);
  pstLib->iMacrosGroupSize = static_cast<uint32_t>(pstParam->iMacrosGroupSize);
  pstLib->iFreeStrBufSize = static_cast<uint32_t>(pstParam->iStrBufSize);
  pstLib->iFlag = static_cast<uint32_t>(pstParam->iResFlag);
  pstLib->iMultiSplitTableKey = 1;
  pstLib->iReserve3 = UINT32_MAX;
  pstLib->ptrValueFiledDefinitionsMap = VIX_PTR32_NONE;
  pstLib->ptrValueFiledDefinitions = VIX_PTR32_NONE;
  pstLib->ptrMacro = 0;
  pstLib->ptrID = static_cast<uint32_t>(a.ptrID);
  pstLib->ptrName = static_cast<uint32_t>(a.ptrName);
  pstLib->ptrMap = static_cast<uint32_t>(a.ptrMap);
  pstLib->ptrMeta = static_cast<uint32_t>(a.ptrMeta);
  pstLib->ptrLaseMeta = static_cast<uint32_t>(a.ptrMeta);
  pstLib->ptrStrBuf = static_cast<uint32_t>(a.ptrStrBuf);
  pstLib->ptrFreeStrBuf = static_cast<uint32_t>(a.ptrStrBuf);
  pstLib->ptrMacroGroupMap = static_cast<uint32_t>(a.ptrMacroGroupMap);
  pstLib->ptrMacrosGroup = static_cast<uint32_t>(a.ptrMacrosGroup);
  return 0;
}

size_t vix_size(const VIXMETALIB* pstLib) {
  return pstLib == nullptr ? 0 : static_cast<size_t>(pstLib->iSize);
}

LPVIXMETALIB vix_clone_lib(void* pvDst, size_t* piBuff, const VIXMETALIB* pstSrc) {
  if (pvDst == nullptr || piBuff == nullptr || !vix_lib_usable_i(pstSrc)) return nullptr;
  const size_t iSize = static_cast<size_t>(pstSrc->iSize);
  const size_t iRoom = *piBuff;
  *piBuff = iSize;
  if (iRoom < iSize) return nullptr;
  memmove(pvDst, pstSrc, iSize);
  return static_cast<LPVIXMETALIB>(pvDst);
}

void vix_free_lib(LPVIXMETALIB* ppstLib) {
  if (ppstLib == nullptr || *ppstLib == nullptr) return;
  free(*ppstLib);
  *ppstLib = nullptr;
}

void vix_free_lib32(LPVIXMETALIB32* ppstLib32) {
  if (ppstLib32 == nullptr || *ppstLib32 == nullptr) return;
  free(*ppstLib32);
  *ppstLib32 = nullptr;
}

int vix_load_metalib(LPVIXMETALIB* ppstLib, const char* pszPath) {
  if (ppstLib == nullptr || pszPath == nullptr) return VIX_ERROR_INVALID_PARAM;
  FILE* fp = fopen(pszPath, "rb");
  if (fp == nullptr) return VIX_ERROR_OPEN_FILE_READ;
  const int iRet = vix_load_metalib_fp(ppstLib, fp);
  fclose(fp);
  return iRet;
}

int vix_load_metalib_fp(LPVIXMETALIB* ppstLib, FILE* fp) {
  if (ppstLib == nullptr || fp == nullptr) return VIX_ERROR_INVALID_PARAM;
  vix_clear_error_detail_i();
  if (fseeko(fp, 0, SEEK_END) != 0) return VIX_ERROR_OPEN_FILE_READ;
  const off_t iEnd = ftello(fp);
  if (iEnd < 0) return VIX_ERROR_OPEN_FILE_READ;
  const uint64_t iFile = static_cast<uint64_t>(iEnd);
  if (iFile < VIX_MIN_LIB_FILE) return VIX_ERROR_BUF_TOO_SHORT;

  unsigned char abHead[16];
  if (fseeko(fp, 0, SEEK_SET) != 0 || fread(abHead, 1, sizeof(abHead), fp) != sizeof(abHead)) {
    return VIX_ERROR_READ_FILE;
  }
  const uint32_t dwPlatform = read_u32_i(abHead + 4);
  if (dwPlatform == VIX_PLATFORM_32) return VIX_ERROR_BUILD_VERSION;
  uint64_t iStart = 0;
  uint64_t iSize = 0;
  if (dwPlatform == VIX_PLATFORM_64) {
    iSize = read_u64_i(abHead + 8);
  } else {
    // A library stored inside a larger file: the word at 8 is its position.
    iStart = read_u64_i(abHead + 8);
    iSize = iStart <= iFile ? iFile - iStart : 0;
  }
  // A size beyond the file could never be read in full; refuse it before allocating.
  if (iSize < 16 || iSize > iFile - (iStart <= iFile ? iStart : iFile)) {
    vix_set_error_detail_i("; library of %llu bytes at %llu in a file of %llu bytes",
                           static_cast<unsigned long long>(iSize),
                           static_cast<unsigned long long>(iStart),
                           static_cast<unsigned long long>(iFile));
    return VIX_ERROR_BAD_METALIB_FILE;
  }
  LPVIXMETALIB pstLib = static_cast<LPVIXMETALIB>(calloc(1, iSize));
  if (pstLib == nullptr) return VIX_ERROR_NO_MEMORY;
  const size_t iRead =
      fseeko(fp, static_cast<off_t>(iStart), SEEK_SET) == 0 ? fread(pstLib, 1, iSize, fp) : 0;
  int iRet = iRead < 16 ? VIX_ERROR_BAD_METALIB_FILE : check_loaded_i(pstLib, iRead);
  if (iRet != 0) {
    free(pstLib);
    return iRet;
  }
  *ppstLib = pstLib;
  return 0;
}

int vix_load_metalib_buf(LPVIXMETALIB* ppstLib, const void* pvBuff, size_t* piLen) {
  if (ppstLib == nullptr || pvBuff == nullptr || piLen == nullptr) return VIX_ERROR_INVALID_PARAM;
  vix_clear_error_detail_i();
  const size_t iLen = *piLen;
  if (iLen < VIX_MIN_LIB_FILE) return VIX_ERROR_BUF_TOO_SHORT;
  const char* pBuff = static_cast<const char*>(pvBuff);
  const uint32_t dwPlatform = read_u32_i(pBuff + 4);
  if (dwPlatform != VIX_PLATFORM_32 && dwPlatform != VIX_PLATFORM_64) return VIX_ERROR_PLATFORM;
  if (dwPlatform == VIX_PLATFORM_32) return VIX_ERROR_BUILD_VERSION;
  const uint64_t iSize = read_u64_i(pBuff + 8);
  if (iSize > iLen) return VIX_ERROR_BUF_TOO_SHORT;
  if (iSize < 16) return VIX_ERROR_BAD_METALIB_FILE;
  // The copy is aligned for the records; the buffer need not be.
  LPVIXMETALIB pstLib = static_cast<LPVIXMETALIB>(malloc(iSize));
  if (pstLib == nullptr) return VIX_ERROR_NO_MEMORY;
  memcpy(pstLib, pBuff, iSize);
  const int iRet = check_loaded_i(pstLib, iSize);
  if (iRet != 0) {
    free(pstLib);
    return iRet;
  }
  *ppstLib = pstLib;
  *piLen = static_cast<size_t>(iSize);
  return 0;
}

void vix_update_checksum(LPVIXMETALIB pstLib) {
  if (pstLib == nullptr || pstLib->nBuild <= 9) return;
  pstLib->checksum = 0;
  pstLib->checksum = vix_xor_words_i(pstLib, pstLib->iSize);
}

void vix_update_checksum32(LPVIXMETALIB32 pstLib) {
  if (pstLib == nullptr || pstLib->nBuild <= 9) return;
  pstLib->checksum = 0;
  pstLib->checksum = vix_xor_words_i(pstLib, pstLib->iSize);
}

int vix_save_metalib_fp(LPVIXMETALIB pstLib, FILE* fp) {
  if (pstLib == nullptr || fp == nullptr || !vix_lib_format_ok_i(pstLib)) {
    return VIX_ERROR_INVALID_PARAM;
  }
  vix_update_checksum(pstLib);
  int iRet = write_block_i(pstLib, pstLib->iSize, fp);
  if (iRet == 0 && fflush(fp) != 0) iRet = VIX_ERROR_WRITE_FILE;
  return iRet;
}

int vix_save_metalib(LPVIXMETALIB pstLib, const char* pszPath) {
  if (pstLib == nullptr || pszPath == nullptr || !vix_lib_format_ok_i(pstLib)) {
    return VIX_ERROR_INVALID_PARAM;
  }
  FILE* fp = fopen(pszPath, "wb");
  if (fp == nullptr) return VIX_ERROR_OPEN_FILE_WRITE;
  int iRet = vix_save_metalib_fp(pstLib, fp);
  if (fclose(fp) != 0 && iRet == 0) iRet = VIX_ERROR_WRITE_FILE;
  return iRet;
}

int vix_save_metalib_fp_compatible(LPVIXMETALIB32 pstLib32, LPVIXMETALIB pstLib64, FILE* fp) {
  if (pstLib32 == nullptr || pstLib64 == nullptr || fp == nullptr ||
      !vix_lib_format_ok_i(pstLib64) || read_u32_i(pstLib32) != VIX_MAGIC_WORD ||
      pstLib32->dwPlatformArch != VIX_PLATFORM_32) {
    return VIX_ERROR_INVALID_PARAM;
  }
  vix_update_checksum(pstLib64);
  vix_update_checksum32(pstLib32);
  int iRet = write_block_i(pstLib64, pstLib64->iSize, fp);
  if (iRet == 0) iRet = write_block_i(pstLib32, pstLib32->iSize, fp);
  if (iRet == 0 && fflush(fp) != 0) iRet = VIX_ERROR_WRITE_FILE;
  return iRet;
}

int vix_save_metalib_compatible(LPVIXMETALIB32 pstLib32, LPVIXMETALIB pstLib64,
                                const char* pszPath) {
  if (pstLib32 == nullptr || pstLib64 == nullptr || pszPath == nullptr ||
      !vix_lib_format_ok_i(pstLib64)) {
    return VIX_ERROR_INVALID_PARAM;
  }
  FILE* fp = fopen(pszPath, "wb");
  if (fp == nullptr) return VIX_ERROR_OPEN_FILE_WRITE;
  int iRet = vix_save_metalib_fp_compatible(pstLib32, pstLib64, fp);
  if (fclose(fp) != 0 && iRet == 0) iRet = VIX_ERROR_WRITE_FILE;
  return iRet;
}

int vix_verify_metalib(const VIXMETALIB* pstLib, const char* pszDigest) {
  if (pstLib == nullptr || pszDigest == nullptr) return VIX_ERROR_INVALID_PARAM;
  if (!vix_lib_usable_i(pstLib)) return VIX_ERROR_BUILD_VERSION;
  uint8_t abDigest[VIX_MD5_DIGEST_LEN];
  char szDigest[VIX_MD5_STR_LEN];
  vix_md5hash_buffer(abDigest, pstLib, pstLib->iSize);
  vix_md5hash2str(abDigest, szDigest, sizeof(szDigest));
  return strncmp(szDigest, pszDigest, VIX_MD5_STR_LEN) == 0 ? 0 : VIX_ERROR_DIGEST_MISMATCH;
}

int vix_load_verify_metalib(LPVIXMETALIB* ppstLib, const char* pszPath, const char* pszDigest) {
  if (ppstLib == nullptr || pszPath == nullptr || pszDigest == nullptr) {
    return VIX_ERROR_INVALID_PARAM;
  }
  LPVIXMETALIB pstLib = nullptr;
  int iRet = vix_load_metalib(&pstLib, pszPath);
  if (iRet != 0) return iRet;
  iRet = vix_verify_metalib(pstLib, pszDigest);
  if (iRet != 0) {
    vix_free_lib(&pstLib);
    return iRet;
  }
  *ppstLib = pstLib;
  return 0;
}
