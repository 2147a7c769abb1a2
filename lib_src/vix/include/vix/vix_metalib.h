/*
 * vix_metalib.h: metadata libraries (metalibs): one relocatable block that describes record
 * types (metas), their members (entries), named constants (macros), macro groups and indexes.
 *
 * Conventions:
 *  - The block holds no machine pointers. Every internal reference is a VIXPTR, an offset from
 *    the first byte after the library header (VIX_LIB_DATA); VIX_PTR_NONE (all ones) is absent.
 *    A library can therefore be written, read, copied with memcpy, checksummed and placed in
 *    shared memory unchanged.
 *  - Ownership: a library read by a vix_load_* function (or made by vix_make_lib32 or the
 *    builder) is one heap block owned by the caller and released with vix_free_lib (or
 *    vix_free_lib32). Metas, entries, macros, groups, indexes and strings handed out by the
 *    lookups are views into the block: never free them, and do not use them after the block is
 *    freed.
 *  - Loaded libraries are read-only and may be searched from any number of threads. A library
 *    file is untrusted input: the loaders check every offset and size against the block before
 *    anything uses it and refuse a block that fails with VIX_ERROR_BAD_METALIB_FILE, so the
 *    lookups never read outside the block.
 *  - Lookups on a library first check its format (first word 0x000B02D6 and platform 64).
 *    A library that fails gets VIX_ERROR_BUILD_VERSION stored as the last error
 *    (vix_set_last_error) and the lookup returns null, -1 or "". Null arguments give null, -1,
 *    "" or VIX_ERROR_INVALID_PARAM without touching the last error. String accessors never
 *    return null for a valid object: an absent string is "".
 *  - Functions returning int give 0 on success or a runtime code (vix_error.h).
 */
#ifndef VIX_VIX_METALIB_H
#define VIX_VIX_METALIB_H

#include <stddef.h>
#include <stdint.h>
#include <stdio.h>

#include "vix/vix_base.h"
#include "vix/vix_error.h"
#include "vix/vix_types.h"

/* ---- scalar conventions ---- */

typedef uint64_t VIXPTR; /* offset from the library's data start; VIX_PTR_NONE when absent */
typedef int64_t VIXOFF;  /* byte offset inside a record instance */
typedef int32_t VIXIDX;  /* index into the type table or a meta's entries; -1 for none */
typedef uint32_t VIXPTR32;
typedef int32_t VIXOFF32;

#define VIX_PTR_NONE ((VIXPTR)-1)
#define VIX_PTR32_NONE ((VIXPTR32)-1)

#define VIX_MAGIC 726              /* wMagic */
#define VIX_BUILD 11               /* nBuild of libraries laid out by this runtime */
#define VIX_MAGIC_WORD 0x000B02D6u /* first 32-bit word: magic and build */
#define VIX_PLATFORM_64 64
#define VIX_PLATFORM_32 32
#define VIX_NAME_LEN 128     /* szName of the library and of macro groups */
#define VIX_MIN_LIB_FILE 360 /* shortest file or buffer the loaders accept */
#define VIX_MAX_ERROR_DETAIL 2048
#define VIX_MAX_NESTING 32 /* deepest nesting of composite members, in layers */

#define VIX_ENTRY_FLAG_HAS_ID 0x0008 /* wFlag: the entry has an identifier */

/* ---- 64-bit layout ---- */

/* Library header; the data block (VIX_LIB_DATA) follows it at byte 352. */
typedef struct tagVIXMetaLib {
  uint16_t wMagic;         /* VIX_MAGIC */
  int16_t nBuild;          /* VIX_BUILD */
  uint32_t dwPlatformArch; /* VIX_PLATFORM_64 */
  uint64_t iSize;          /* bytes of the whole block, header included */
  uint32_t checksum;       /* XOR of the block's 32-bit words (see vix_save_metalib) */
  int32_t iReserve[3];
  int32_t iID;
  int32_t iXMLTagSetVer;
  int32_t iMaxID;      /* largest meta identifier */
  int32_t iMaxMetaNum; /* capacity of metas */
  int32_t iCurMetaNum; /* metas defined */
  int32_t iMaxMacroNum;
  int32_t iCurMacroNum;
  int32_t iMaxMacrosGroupNum;
  int32_t iCurMacrosGroupNum;
  int32_t iMaxValFieldDefNum;
  int32_t iCurValFieldDefNum;
  int32_t iVersion;
  VIXPTR ptrMacro;           /* macro table, definition order */
  VIXPTR ptrID;              /* ID table, ascending iID */
  VIXPTR ptrName;            /* name table, byte-wise ascending names */
  VIXPTR ptrMap;             /* definition map */
  VIXPTR ptrMeta;            /* meta area */
  VIXPTR ptrLaseMeta;        /* first free byte of the meta area */
  uint64_t iFreeStrBufSize;  /* free bytes left in the string buffer */
  VIXPTR ptrStrBuf;          /* string buffer */
  VIXPTR ptrFreeStrBuf;      /* first free byte of the string buffer */
  VIXPTR ptrMacroGroupMap;   /* macro-group map */
  VIXPTR ptrMacrosGroup;     /* macro-group area */
  uint64_t iMacrosGroupSize; /* bytes of the macro-group area */
  VIXPTR ptrValueFiledDefinitionsMap;
  VIXPTR ptrValueFiledDefinitions;
  uint64_t iValueFiledDefinitionsSize;
  uint64_t iFlag;               /* resource flags from the parameter record */
  uint64_t iMultiSplitTableKey; /* 1 */
  uint64_t iReserve3;           /* all ones */
  char szName[VIX_NAME_LEN];
} VIXMETALIB, *LPVIXMETALIB;

typedef struct tagVIXMacro {
  VIXPTR ptrMacro; /* name */
  int32_t iValue;
  int32_t iReserve1;
  VIXPTR ptrDesc;
  int32_t iReserve;
  int32_t iReserve2;
} VIXMACRO, *LPVIXMACRO;

typedef struct tagVIXIDEntry {
  int32_t iID;
  int32_t iReserve;
  VIXPTR ptrMeta;
} VIXIDENTRY, *LPVIXIDENTRY;

typedef struct tagVIXNameEntry {
  VIXPTR ptrName;
  VIXPTR ptrMeta;
} VIXNAMEENTRY, *LPVIXNAMEENTRY;

typedef struct tagVIXMapEntry {
  VIXPTR iPtr;
  uint64_t iSize;
} VIXMAPENTRY, *LPVIXMAPENTRY;

/* A macro group; its two index arrays (int32 macro indexes, iMaxMacroCount each) follow the
 * record from byte 160. */
typedef struct tagVIXMacrosGroup {
  int32_t iCurMacroCount;
  int32_t iMaxMacroCount;
  VIXPTR ptrDesc;
  VIXPTR ptrNameIdxMap;  /* macro indexes ordered by macro name */
  VIXPTR ptrValueIdxMap; /* macro indexes ordered by value */
  char szName[VIX_NAME_LEN];
} VIXMACROSGROUP, *LPVIXMACROSGROUP;

/* Size prefix of a member, or the member holding a size: iUnitSize 0 means none. */
typedef struct tagVIXSizeInfo {
  VIXOFF iNOff;
  VIXOFF iHOff;
  uint64_t iUnitSize;
  int32_t idxSizeType;
  int32_t iReserve;
} VIXSIZEINFO, *LPVIXSIZEINFO;

/* A member read at run time (array count, union selector): iUnitSize bytes at iHOff of the
 * owning meta's instance; ptrEntry is that member's entry. iUnitSize 0 means none. */
typedef struct tagVIXSelector {
  uint64_t iUnitSize;
  VIXOFF iHOff;
  VIXPTR ptrEntry;
} VIXSELECTOR, *LPVIXSELECTOR;

typedef struct tagVIXRedirector {
  VIXOFF iNOff;
  VIXOFF iHOff;
  uint64_t iUnitSize;
} VIXREDIRECTOR, *LPVIXREDIRECTOR;

typedef struct tagVIXSortKeyInfo {
  VIXIDX idxSortEntry;
  int32_t iReserve;
  VIXOFF iSortKeyOff;
  VIXPTR ptrSortKeyMeta;
} VIXSORTKEYINFO, *LPVIXSORTKEYINFO;

/* One key member: its host offset in the meta and its entry. */
typedef struct tagVIXDBKeyInfo {
  VIXOFF iHOff;
  VIXPTR ptrEntry;
} VIXDBKEYINFO, *LPVIXDBKEYINFO;

/* Meta header; iEntriesNum entries (VIXMETAENTRY) follow it at byte 304. */
typedef struct tagVIXMeta {
  uint32_t uFlags;
  int32_t iID;
  int32_t iBaseVersion;
  int32_t iCurVersion;
  int32_t iType; /* VIX_TYPE_UNION or VIX_TYPE_STRUCT */
  int32_t iReserve1;
  uint64_t iMemSize;   /* bytes of the meta in the meta area */
  uint64_t iNUnitSize; /* size of one instance in network encoding */
  uint64_t iHUnitSize; /* size of one instance in host memory */
  uint64_t iCustomHUnitSize;
  int32_t idxCustomHUnitSize;
  int32_t iMaxSubID;
  int32_t iEntriesNum;
  int32_t iIndexesNum;
  VIXPTR ptrIndexes; /* first VIXMETAINDEX */
  VIXPTR ptrColumns; /* column table of the indexes */
  VIXPTR ptrMeta;    /* this meta's own offset from the data start */
  VIXIDX iIdx;       /* position in the definition map */
  VIXIDX idxID;
  VIXIDX idxType;
  VIXIDX idxVersion;
  int32_t iCustomAlign;
  int32_t iValidAlign;
  int32_t iVersionIndicatorMinVer;
  int32_t iReserve2;
  VIXSIZEINFO stSizeType;
  VIXREDIRECTOR stVersionIndicator;
  VIXSORTKEYINFO stSortKey;
  VIXPTR ptrName;
  VIXPTR ptrDesc;
  VIXPTR ptrChineseName;
  int32_t iSplitTableFactor;
  int16_t nSplitTableRuleID;
  int16_t nPrimayKeyMemberNum;
  VIXIDX idxSplitTableFactor;
  int32_t iReserve4;
  VIXDBKEYINFO stSplitTableKey;
  VIXPTR ptrPrimayKeyBase; /* nPrimayKeyMemberNum VIXDBKEYINFO */
  VIXPTR ptrDependonStruct;
  VIXPTR ptrCustomAttr;
  VIXPTR ptrCustomAttr2;
  uint64_t iReserve3;
} VIXMETA, *LPVIXMETA;

typedef struct tagVIXMetaEntry {
  int32_t iID;
  int32_t iVersion;
  int32_t iType; /* type-table index */
  int32_t iReserve1;
  VIXPTR ptrName;
  uint64_t iHRealSize; /* host size of all elements */
  uint64_t iNRealSize;
  uint64_t iHUnitSize; /* host size of one element */
  uint64_t iNUnitSize;
  uint64_t iCustomHUnitSize;
  int32_t iCount; /* elements; 1 for a scalar, 0 for a trailing open array */
  int32_t iReserve2;
  VIXOFF iNOff;
  VIXOFF iHOff;
  VIXIDX idxID;
  VIXIDX idxVersion;
  VIXIDX idxCount;
  VIXIDX idxType;
  VIXIDX idxCustomHUnitSize;
  uint16_t wFlag;
  char chDBFlag;
  char chOrder;
  VIXSIZEINFO stSizeInfo;
  VIXSELECTOR stRefer;    /* member holding the element count */
  VIXSELECTOR stSelector; /* member selecting the union branch */
  int32_t iIO;
  int32_t idxIO;
  VIXPTR ptrMeta; /* meta of a composite member */
  int32_t iMaxId; /* union branch range [iMinId, iMaxId]; none when iMinId > iMaxId */
  int32_t iMinId;
  VIXIDX iMaxIdIdx;
  VIXIDX iMinIdIdx;
  uint64_t iDefaultValLen;
  VIXPTR ptrDesc;
  VIXPTR ptrChineseName;
  VIXPTR ptrDefaultVal;
  VIXPTR ptrMacrosGroup;
  VIXPTR ptrCustomAttr;
  uint64_t iOffToMeta; /* distance from the owning meta's start */
  uint64_t iFlag;
  VIXPTR ptrCustomAttr2;
  uint64_t iReserve3;
} VIXMETAENTRY, *LPVIXMETAENTRY;

/* An index of a meta; its columns are iColumnNum VIXDBKEYINFO at ptrColumnBase. The custom
 * attribute strings sit in the record's two 32-bit slots as 1 + their offset from the string
 * buffer start (0 when absent). */
typedef struct tagVIXMetaIndex {
  int32_t iVersion;
  int32_t iReserve1;
  VIXPTR ptrName;
  uint64_t iOffToMeta;
  int32_t iColumnNum;
  int32_t iReserve2;
  VIXPTR ptrColumnBase;
  int32_t iIndexType;
  int32_t iIsUnique;
  VIXPTR ptrDesc;
  VIXPTR ptrChineseName;
  int32_t iID;
  uint32_t dwCustomAttr;
  VIXIDX idxID;
  uint32_t dwCustomAttr2;
} VIXMETAINDEX, *LPVIXMETAINDEX;

/* Input to vix_init_lib. */
typedef struct tagVIXLibParam {
  int32_t iID;
  int32_t iTagSetVersion;
  uint64_t iSize; /* bytes available in the block */
  uint64_t iMacrosGroupSize;
  uint64_t iMetaSize;
  uint64_t iStrBufSize;
  int32_t iMaxMacros;
  int32_t iMaxMetas;
  int32_t iMaxMacrosGroupNum;
  int32_t iResFlag;
  int32_t iVersion;
  char szName[VIX_NAME_LEN];
} VIXLIBPARAM, *LPVIXLIBPARAM;

/* Verdict of vix_compare_metalib / vix_compare_meta. */
typedef enum tagCompatibleBoolean {
  VIX_XML_EQUIVALENT = 0,
  VIX_XML_COMPATIBLE = 1,
  VIX_XML_UNCOMPATIBLE = 2
} VIXCOMPATIBLEBOOLEAN;

/* ---- 32-bit layout: the same records with every size, offset and VIXPTR 32 bits wide ---- */

typedef struct tagVIXMetaLib32 {
  uint16_t wMagic;
  int16_t nBuild;
  uint32_t dwPlatformArch; /* VIX_PLATFORM_32 */
  uint32_t iSize;
  uint32_t checksum;
  int32_t iReserve[3];
  int32_t iID;
  int32_t iXMLTagSetVer;
  int32_t iMaxID;
  int32_t iMaxMetaNum;
  int32_t iCurMetaNum;
  int32_t iMaxMacroNum;
  int32_t iCurMacroNum;
  int32_t iMaxMacrosGroupNum;
  int32_t iCurMacrosGroupNum;
  int32_t iMaxValFieldDefNum;
  int32_t iCurValFieldDefNum;
  int32_t iVersion;
  VIXPTR32 ptrMacro;
  VIXPTR32 ptrID;
  VIXPTR32 ptrName;
  VIXPTR32 ptrMap;
  VIXPTR32 ptrMeta;
  VIXPTR32 ptrLaseMeta;
  uint32_t iFreeStrBufSize;
  VIXPTR32 ptrStrBuf;
  VIXPTR32 ptrFreeStrBuf;
  VIXPTR32 ptrMacroGroupMap;
  VIXPTR32 ptrMacrosGroup;
  uint32_t iMacrosGroupSize;
  VIXPTR32 ptrValueFiledDefinitionsMap;
  VIXPTR32 ptrValueFiledDefinitions;
  uint32_t iValueFiledDefinitionsSize;
  uint32_t iFlag;
  uint32_t iMultiSplitTableKey;
  uint32_t iReserve3;
  char szName[VIX_NAME_LEN];
} VIXMETALIB32, *LPVIXMETALIB32;

typedef struct tagVIXMacro32 {
  VIXPTR32 ptrMacro;
  int32_t iValue;
  VIXPTR32 ptrDesc;
  int32_t iReserve;
} VIXMACRO32;

typedef struct tagVIXIDEntry32 {
  int32_t iID;
  VIXPTR32 ptrMeta;
} VIXIDENTRY32;

typedef struct tagVIXNameEntry32 {
  VIXPTR32 ptrName;
  VIXPTR32 ptrMeta;
} VIXNAMEENTRY32;

typedef struct tagVIXMapEntry32 {
  VIXPTR32 iPtr;
  uint32_t iSize;
} VIXMAPENTRY32;

typedef struct tagVIXMacrosGroup32 {
  int32_t iCurMacroCount;
  int32_t iMaxMacroCount;
  VIXPTR32 ptrDesc;
  VIXPTR32 ptrNameIdxMap;
  VIXPTR32 ptrValueIdxMap;
  char szName[VIX_NAME_LEN];
} VIXMACROSGROUP32;

typedef struct tagVIXSizeInfo32 {
  VIXOFF32 iNOff;
  VIXOFF32 iHOff;
  uint32_t iUnitSize;
  int32_t idxSizeType;
} VIXSIZEINFO32;

typedef struct tagVIXSelector32 {
  uint32_t iUnitSize;
  VIXOFF32 iHOff;
  VIXPTR32 ptrEntry;
} VIXSELECTOR32;

typedef struct tagVIXRedirector32 {
  VIXOFF32 iNOff;
  VIXOFF32 iHOff;
  uint32_t iUnitSize;
} VIXREDIRECTOR32;

typedef struct tagVIXSortKeyInfo32 {
  VIXIDX idxSortEntry;
  VIXOFF32 iSortKeyOff;
  VIXPTR32 ptrSortKeyMeta;
} VIXSORTKEYINFO32;

typedef struct tagVIXDBKeyInfo32 {
  VIXOFF32 iHOff;
  VIXPTR32 ptrEntry;
} VIXDBKEYINFO32;

typedef struct tagVIXMeta32 {
  uint32_t uFlags;
  int32_t iID;
  int32_t iBaseVersion;
  int32_t iCurVersion;
  int32_t iType;
  uint32_t iMemSize;
  uint32_t iNUnitSize;
  uint32_t iHUnitSize;
  uint32_t iCustomHUnitSize;
  int32_t idxCustomHUnitSize;
  int32_t iMaxSubID;
  int32_t iEntriesNum;
  int32_t iIndexesNum;
  VIXPTR32 ptrIndexes;
  VIXPTR32 ptrColumns;
  VIXPTR32 ptrMeta;
  VIXIDX iIdx;
  VIXIDX idxID;
  VIXIDX idxType;
  VIXIDX idxVersion;
  int32_t iCustomAlign;
  int32_t iValidAlign;
  int32_t iVersionIndicatorMinVer;
  VIXSIZEINFO32 stSizeType;
  VIXREDIRECTOR32 stVersionIndicator;
  VIXSORTKEYINFO32 stSortKey;
  VIXPTR32 ptrName;
  VIXPTR32 ptrDesc;
  VIXPTR32 ptrChineseName;
  int32_t iSplitTableFactor;
  int16_t nSplitTableRuleID;
  int16_t nPrimayKeyMemberNum;
  VIXIDX idxSplitTableFactor;
  VIXDBKEYINFO32 stSplitTableKey;
  VIXPTR32 ptrPrimayKeyBase;
  VIXPTR32 ptrDependonStruct;
  VIXPTR32 ptrCustomAttr;
  VIXPTR32 ptrCustomAttr2;
  uint32_t iReserve3;
} VIXMETA32;

typedef struct tagVIXMetaEntry32 {
  int32_t iID;
  int32_t iVersion;
  int32_t iType;
  VIXPTR32 ptrName;
  uint32_t iHRealSize;
  uint32_t iNRealSize;
  uint32_t iHUnitSize;
  uint32_t iNUnitSize;
  uint32_t iCustomHUnitSize;
  int32_t iCount;
  VIXOFF32 iNOff;
  VIXOFF32 iHOff;
  VIXIDX idxID;
  VIXIDX idxVersion;
  VIXIDX idxCount;
  VIXIDX idxType;
  VIXIDX idxCustomHUnitSize;
  uint16_t wFlag;
  char chDBFlag;
  char chOrder;
  VIXSIZEINFO32 stSizeInfo;
  VIXSELECTOR32 stRefer;
  VIXSELECTOR32 stSelector;
  int32_t iIO;
  int32_t idxIO;
  VIXPTR32 ptrMeta;
  int32_t iMaxId;
  int32_t iMinId;
  VIXIDX iMaxIdIdx;
  VIXIDX iMinIdIdx;
  uint32_t iDefaultValLen;
  VIXPTR32 ptrDesc;
  VIXPTR32 ptrChineseName;
  VIXPTR32 ptrDefaultVal;
  VIXPTR32 ptrMacrosGroup;
  VIXPTR32 ptrCustomAttr;
  uint32_t iOffToMeta;
  uint32_t iFlag;
  VIXPTR32 ptrCustomAttr2;
  uint32_t iReserve3;
} VIXMETAENTRY32;

typedef struct tagVIXMetaIndex32 {
  int32_t iVersion;
  VIXPTR32 ptrName;
  uint32_t iOffToMeta;
  int32_t iColumnNum;
  VIXPTR32 ptrColumnBase;
  int32_t iIndexType;
  int32_t iIsUnique;
  VIXPTR32 ptrDesc;
  VIXPTR32 ptrChineseName;
  int32_t iID;
  uint32_t dwCustomAttr;
  VIXIDX idxID;
  uint32_t dwCustomAttr2;
} VIXMETAINDEX32;

/* ---- layout checks: every offset and size of the format ---- */

#define VIX_LAYOUT_AT(type, field, off) \
  VIX_STATIC_ASSERT(offsetof(type, field) == (off), #type "." #field " at " #off)
#define VIX_LAYOUT_SIZE(type, size) VIX_STATIC_ASSERT(sizeof(type) == (size), #type " size")

VIX_LAYOUT_AT(VIXMETALIB, wMagic, 0);
VIX_LAYOUT_AT(VIXMETALIB, nBuild, 2);
VIX_LAYOUT_AT(VIXMETALIB, dwPlatformArch, 4);
VIX_LAYOUT_AT(VIXMETALIB, iSize, 8);
VIX_LAYOUT_AT(VIXMETALIB, checksum, 16);
VIX_LAYOUT_AT(VIXMETALIB, iReserve, 20);
VIX_LAYOUT_AT(VIXMETALIB, iID, 32);
VIX_LAYOUT_AT(VIXMETALIB, iXMLTagSetVer, 36);
VIX_LAYOUT_AT(VIXMETALIB, iMaxID, 40);
VIX_LAYOUT_AT(VIXMETALIB, iMaxMetaNum, 44);
VIX_LAYOUT_AT(VIXMETALIB, iCurMetaNum, 48);
VIX_LAYOUT_AT(VIXMETALIB, iMaxMacroNum, 52);
VIX_LAYOUT_AT(VIXMETALIB, iCurMacroNum, 56);
VIX_LAYOUT_AT(VIXMETALIB, iMaxMacrosGroupNum, 60);
VIX_LAYOUT_AT(VIXMETALIB, iCurMacrosGroupNum, 64);
VIX_LAYOUT_AT(VIXMETALIB, iMaxValFieldDefNum, 68);
VIX_LAYOUT_AT(VIXMETALIB, iCurValFieldDefNum, 72);
VIX_LAYOUT_AT(VIXMETALIB, iVersion, 76);
VIX_LAYOUT_AT(VIXMETALIB, ptrMacro, 80);
VIX_LAYOUT_AT(VIXMETALIB, ptrID, 88);
VIX_LAYOUT_AT(VIXMETALIB, ptrName, 96);
VIX_LAYOUT_AT(VIXMETALIB, ptrMap, 104);
VIX_LAYOUT_AT(VIXMETALIB, ptrMeta, 112);
VIX_LAYOUT_AT(VIXMETALIB, ptrLaseMeta, 120);
VIX_LAYOUT_AT(VIXMETALIB, iFreeStrBufSize, 128);
VIX_LAYOUT_AT(VIXMETALIB, ptrStrBuf, 136);
VIX_LAYOUT_AT(VIXMETALIB, ptrFreeStrBuf, 144);
VIX_LAYOUT_AT(VIXMETALIB, ptrMacroGroupMap, 152);
VIX_LAYOUT_AT(VIXMETALIB, ptrMacrosGroup, 160);
VIX_LAYOUT_AT(VIXMETALIB, iMacrosGroupSize, 168);
VIX_LAYOUT_AT(VIXMETALIB, ptrValueFiledDefinitionsMap, 176);
VIX_LAYOUT_AT(VIXMETALIB, ptrValueFiledDefinitions, 184);
VIX_LAYOUT_AT(VIXMETALIB, iValueFiledDefinitionsSize, 192);
VIX_LAYOUT_AT(VIXMETALIB, iFlag, 200);
VIX_LAYOUT_AT(VIXMETALIB, iMultiSplitTableKey, 208);
VIX_LAYOUT_AT(VIXMETALIB, iReserve3, 216);
VIX_LAYOUT_AT(VIXMETALIB, szName, 224);
VIX_LAYOUT_SIZE(VIXMETALIB, 352);

VIX_LAYOUT_AT(VIXMACRO, ptrMacro, 0);
VIX_LAYOUT_AT(VIXMACRO, iValue, 8);
VIX_LAYOUT_AT(VIXMACRO, ptrDesc, 16);
VIX_LAYOUT_AT(VIXMACRO, iReserve, 24);
VIX_LAYOUT_SIZE(VIXMACRO, 32);
VIX_LAYOUT_AT(VIXIDENTRY, iID, 0);
VIX_LAYOUT_AT(VIXIDENTRY, ptrMeta, 8);
VIX_LAYOUT_SIZE(VIXIDENTRY, 16);
VIX_LAYOUT_AT(VIXNAMEENTRY, ptrName, 0);
VIX_LAYOUT_AT(VIXNAMEENTRY, ptrMeta, 8);
VIX_LAYOUT_SIZE(VIXNAMEENTRY, 16);
VIX_LAYOUT_AT(VIXMAPENTRY, iPtr, 0);
VIX_LAYOUT_AT(VIXMAPENTRY, iSize, 8);
VIX_LAYOUT_SIZE(VIXMAPENTRY, 16);
VIX_LAYOUT_AT(VIXMACROSGROUP, iCurMacroCount, 0);
VIX_LAYOUT_AT(VIXMACROSGROUP, iMaxMacroCount, 4);
VIX_LAYOUT_AT(VIXMACROSGROUP, ptrDesc, 8);
VIX_LAYOUT_AT(VIXMACROSGROUP, ptrNameIdxMap, 16);
VIX_LAYOUT_AT(VIXMACROSGROUP, ptrValueIdxMap, 24);
VIX_LAYOUT_AT(VIXMACROSGROUP, szName, 32);
VIX_LAYOUT_SIZE(VIXMACROSGROUP, 160);

VIX_LAYOUT_AT(VIXSIZEINFO, iNOff, 0);
VIX_LAYOUT_AT(VIXSIZEINFO, iHOff, 8);
VIX_LAYOUT_AT(VIXSIZEINFO, iUnitSize, 16);
VIX_LAYOUT_AT(VIXSIZEINFO, idxSizeType, 24);
VIX_LAYOUT_SIZE(VIXSIZEINFO, 32);
VIX_LAYOUT_AT(VIXSELECTOR, iUnitSize, 0);
VIX_LAYOUT_AT(VIXSELECTOR, iHOff, 8);
VIX_LAYOUT_AT(VIXSELECTOR, ptrEntry, 16);
VIX_LAYOUT_SIZE(VIXSELECTOR, 24);
VIX_LAYOUT_AT(VIXREDIRECTOR, iNOff, 0);
VIX_LAYOUT_AT(VIXREDIRECTOR, iHOff, 8);
VIX_LAYOUT_AT(VIXREDIRECTOR, iUnitSize, 16);
VIX_LAYOUT_SIZE(VIXREDIRECTOR, 24);
VIX_LAYOUT_AT(VIXSORTKEYINFO, idxSortEntry, 0);
VIX_LAYOUT_AT(VIXSORTKEYINFO, iSortKeyOff, 8);
VIX_LAYOUT_AT(VIXSORTKEYINFO, ptrSortKeyMeta, 16);
VIX_LAYOUT_SIZE(VIXSORTKEYINFO, 24);
VIX_LAYOUT_AT(VIXDBKEYINFO, iHOff, 0);
VIX_LAYOUT_AT(VIXDBKEYINFO, ptrEntry, 8);
VIX_LAYOUT_SIZE(VIXDBKEYINFO, 16);

VIX_LAYOUT_AT(VIXMETA, uFlags, 0);
VIX_LAYOUT_AT(VIXMETA, iID, 4);
VIX_LAYOUT_AT(VIXMETA, iBaseVersion, 8);
VIX_LAYOUT_AT(VIXMETA, iCurVersion, 12);
VIX_LAYOUT_AT(VIXMETA, iType, 16);
VIX_LAYOUT_AT(VIXMETA, iMemSize, 24);
VIX_LAYOUT_AT(VIXMETA, iNUnitSize, 32);
VIX_LAYOUT_AT(VIXMETA, iHUnitSize, 40);
VIX_LAYOUT_AT(VIXMETA, iCustomHUnitSize, 48);
VIX_LAYOUT_AT(VIXMETA, idxCustomHUnitSize, 56);
VIX_LAYOUT_AT(VIXMETA, iMaxSubID, 60);
VIX_LAYOUT_AT(VIXMETA, iEntriesNum, 64);
VIX_LAYOUT_AT(VIXMETA, iIndexesNum, 68);
VIX_LAYOUT_AT(VIXMETA, ptrIndexes, 72);
VIX_LAYOUT_AT(VIXMETA, ptrColumns, 80);
VIX_LAYOUT_AT(VIXMETA, ptrMeta, 88);
VIX_LAYOUT_AT(VIXMETA, iIdx, 96);
VIX_LAYOUT_AT(VIXMETA, idxID, 100);
VIX_LAYOUT_AT(VIXMETA, idxType, 104);
VIX_LAYOUT_AT(VIXMETA, idxVersion, 108);
VIX_LAYOUT_AT(VIXMETA, iCustomAlign, 112);
VIX_LAYOUT_AT(VIXMETA, iValidAlign, 116);
VIX_LAYOUT_AT(VIXMETA, iVersionIndicatorMinVer, 120);
VIX_LAYOUT_AT(VIXMETA, stSizeType, 128);
VIX_LAYOUT_AT(VIXMETA, stVersionIndicator, 160);
VIX_LAYOUT_AT(VIXMETA, stSortKey, 184);
VIX_LAYOUT_AT(VIXMETA, ptrName, 208);
VIX_LAYOUT_AT(VIXMETA, ptrDesc, 216);
VIX_LAYOUT_AT(VIXMETA, ptrChineseName, 224);
VIX_LAYOUT_AT(VIXMETA, iSplitTableFactor, 232);
VIX_LAYOUT_AT(VIXMETA, nSplitTableRuleID, 236);
VIX_LAYOUT_AT(VIXMETA, nPrimayKeyMemberNum, 238);
VIX_LAYOUT_AT(VIXMETA, idxSplitTableFactor, 240);
VIX_LAYOUT_AT(VIXMETA, stSplitTableKey, 248);
VIX_LAYOUT_AT(VIXMETA, ptrPrimayKeyBase, 264);
VIX_LAYOUT_AT(VIXMETA, ptrDependonStruct, 272);
VIX_LAYOUT_AT(VIXMETA, ptrCustomAttr, 280);
VIX_LAYOUT_AT(VIXMETA, ptrCustomAttr2, 288);
VIX_LAYOUT_AT(VIXMETA, iReserve3, 296);
VIX_LAYOUT_SIZE(VIXMETA, 304);

VIX_LAYOUT_AT(VIXMETAENTRY, iID, 0);
VIX_LAYOUT_AT(VIXMETAENTRY, iVersion, 4);
VIX_LAYOUT_AT(VIXMETAENTRY, iType, 8);
VIX_LAYOUT_AT(VIXMETAENTRY, ptrName, 16);
VIX_LAYOUT_AT(VIXMETAENTRY, iHRealSize, 24);
VIX_LAYOUT_AT(VIXMETAENTRY, iNRealSize, 32);
VIX_LAYOUT_AT(VIXMETAENTRY, iHUnitSize, 40);
VIX_LAYOUT_AT(VIXMETAENTRY, iNUnitSize, 48);
VIX_LAYOUT_AT(VIXMETAENTRY, iCustomHUnitSize, 56);
VIX_LAYOUT_AT(VIXMETAENTRY, iCount, 64);
VIX_LAYOUT_AT(VIXMETAENTRY, iNOff, 72);
VIX_LAYOUT_AT(VIXMETAENTRY, iHOff, 80);
VIX_LAYOUT_AT(VIXMETAENTRY, idxID, 88);
VIX_LAYOUT_AT(VIXMETAENTRY, idxVersion, 92);
VIX_LAYOUT_AT(VIXMETAENTRY, idxCount, 96);
VIX_LAYOUT_AT(VIXMETAENTRY, idxType, 100);
VIX_LAYOUT_AT(VIXMETAENTRY, idxCustomHUnitSize, 104);
VIX_LAYOUT_AT(VIXMETAENTRY, wFlag, 108);
VIX_LAYOUT_AT(VIXMETAENTRY, chDBFlag, 110);
VIX_LAYOUT_AT(VIXMETAENTRY, chOrder, 111);
VIX_LAYOUT_AT(VIXMETAENTRY, stSizeInfo, 112);
VIX_LAYOUT_AT(VIXMETAENTRY, stRefer, 144);
VIX_LAYOUT_AT(VIXMETAENTRY, stSelector, 168);
VIX_LAYOUT_AT(VIXMETAENTRY, iIO, 192);
VIX_LAYOUT_AT(VIXMETAENTRY, idxIO, 196);
VIX_LAYOUT_AT(VIXMETAENTRY, ptrMeta, 200);
VIX_LAYOUT_AT(VIXMETAENTRY, iMaxId, 208);
VIX_LAYOUT_AT(VIXMETAENTRY, iMinId, 212);
VIX_LAYOUT_AT(VIXMETAENTRY, iMaxIdIdx, 216);
VIX_LAYOUT_AT(VIXMETAENTRY, iMinIdIdx, 220);
VIX_LAYOUT_AT(VIXMETAENTRY, iDefaultValLen, 224);
VIX_LAYOUT_AT(VIXMETAENTRY, ptrDesc, 232);
VIX_LAYOUT_AT(VIXMETAENTRY, ptrChineseName, 240);
VIX_LAYOUT_AT(VIXMETAENTRY, ptrDefaultVal, 248);
VIX_LAYOUT_AT(VIXMETAENTRY, ptrMacrosGroup, 256);
VIX_LAYOUT_AT(VIXMETAENTRY, ptrCustomAttr, 264);
VIX_LAYOUT_AT(VIXMETAENTRY, iOffToMeta, 272);
VIX_LAYOUT_AT(VIXMETAENTRY, iFlag, 280);
VIX_LAYOUT_AT(VIXMETAENTRY, ptrCustomAttr2, 288);
VIX_LAYOUT_AT(VIXMETAENTRY, iReserve3, 296);
VIX_LAYOUT_SIZE(VIXMETAENTRY, 304);

VIX_LAYOUT_AT(VIXMETAINDEX, iVersion, 0);
VIX_LAYOUT_AT(VIXMETAINDEX, ptrName, 8);
VIX_LAYOUT_AT(VIXMETAINDEX, iOffToMeta, 16);
VIX_LAYOUT_AT(VIXMETAINDEX, iColumnNum, 24);
VIX_LAYOUT_AT(VIXMETAINDEX, ptrColumnBase, 32);
VIX_LAYOUT_AT(VIXMETAINDEX, iIndexType, 40);
VIX_LAYOUT_AT(VIXMETAINDEX, iIsUnique, 44);
VIX_LAYOUT_AT(VIXMETAINDEX, ptrDesc, 48);
VIX_LAYOUT_AT(VIXMETAINDEX, ptrChineseName, 56);
VIX_LAYOUT_AT(VIXMETAINDEX, iID, 64);
VIX_LAYOUT_AT(VIXMETAINDEX, idxID, 72);
VIX_LAYOUT_SIZE(VIXMETAINDEX, 80);

VIX_LAYOUT_AT(VIXMETALIB32, iSize, 8);
VIX_LAYOUT_AT(VIXMETALIB32, checksum, 12);
VIX_LAYOUT_AT(VIXMETALIB32, ptrMacro, 76);
VIX_LAYOUT_AT(VIXMETALIB32, szName, 148);
VIX_LAYOUT_SIZE(VIXMETALIB32, 276);
VIX_LAYOUT_SIZE(VIXMACRO32, 16);
VIX_LAYOUT_SIZE(VIXIDENTRY32, 8);
VIX_LAYOUT_SIZE(VIXNAMEENTRY32, 8);
VIX_LAYOUT_SIZE(VIXMAPENTRY32, 8);
VIX_LAYOUT_SIZE(VIXMACROSGROUP32, 148);
VIX_LAYOUT_SIZE(VIXMETA32, 184);
VIX_LAYOUT_SIZE(VIXMETAENTRY32, 180);
VIX_LAYOUT_SIZE(VIXMETAINDEX32, 52);

/* Start of a library's data block: every VIXPTR counts from here. */
#define VIX_LIB_DATA(pstLib) ((char*)(pstLib) + sizeof(VIXMETALIB))
#define VIX_LIB32_DATA(pstLib) ((char*)(pstLib) + sizeof(VIXMETALIB32))

/* Bytes vix_init_lib needs for the given capacities and area sizes. */
#define VIX_LIB_REQUIRED_SIZE(macros, metas, groups, metaSize, strSize, groupSize)     \
  ((uint64_t)sizeof(VIXMETALIB) + 32u * (uint64_t)(macros) + 48u * (uint64_t)(metas) + \
   16u * (uint64_t)(groups) + (uint64_t)(metaSize) + (uint64_t)(strSize) + (uint64_t)(groupSize))

#ifdef __cplusplus
extern "C" {
#endif

/* ---- layout, copy, release ---- */

/* Lays out an empty library in pstLib from the parameter record: null arguments give
 * VIX_ERROR_INVALID_PARAM; iMaxMacros and iMaxMetas both below 1, or a requirement
 * (VIX_LIB_REQUIRED_SIZE) above pstParam->iSize, VIX_ERROR_LIB_PARAM. Zeroes iSize bytes. */
VIX_WUR int vix_init_lib(LPVIXMETALIB pstLib, const VIXLIBPARAM* pstParam);
VIX_WUR int vix_init_lib_for64(LPVIXMETALIB pstLib, const VIXLIBPARAM* pstParam);

/* The same for the 32-bit layout: requirement 276 + 16 x macros + 24 x metas + 8 x groups
 * + the three area sizes; the areas must fit 32-bit offsets (else VIX_ERROR_LIB_PARAM). */
VIX_WUR int vix_init_lib_for32(LPVIXMETALIB32 pstLib, const VIXLIBPARAM* pstParam);

/* iSize of a library, 0 for null. */
size_t vix_size(const VIXMETALIB* pstLib);

/* Copies pstSrc into pvDst when *piBuff is at least its iSize; stores iSize into *piBuff and
 * returns pvDst as a library. Null on any null argument, a source failing the format check or
 * too little room (*piBuff then also receives the size needed). */
LPVIXMETALIB vix_clone_lib(void* pvDst, size_t* piBuff, const VIXMETALIB* pstSrc);

/* Frees a library from the heap and sets *ppstLib to null; null handles are ignored. */
void vix_free_lib(LPVIXMETALIB* ppstLib);

/* ---- reading and writing files ---- */

/* Reads a library file into a new heap block (see vix_load_metalib_fp); the path is opened in
 * binary read mode, VIX_ERROR_OPEN_FILE_READ when it cannot be. */
VIX_WUR int vix_load_metalib(LPVIXMETALIB* ppstLib, const char* pszPath);

/* Reads a library from an open file, measured from its first byte. Checks in this order:
 * null argument VIX_ERROR_INVALID_PARAM; a file below 360 bytes VIX_ERROR_BUF_TOO_SHORT;
 * platform 32 VIX_ERROR_BUILD_VERSION; platform 64: the library is iSize bytes from the start;
 * any other platform: the 8 bytes at offset 8 give the library's position and it runs to the
 * end of the file; a library below 16 bytes or beyond the file VIX_ERROR_BAD_METALIB_FILE;
 * no memory VIX_ERROR_NO_MEMORY; bytes read below the block's iSize
 * VIX_ERROR_BAD_METALIB_FILE; first word not 0x000B02D6 VIX_ERROR_BUILD_VERSION; platform not
 * 64 VIX_ERROR_PLATFORM; checksum unsound VIX_ERROR_CHECKSUM; then every offset and size of the
 * block VIX_ERROR_BAD_METALIB_FILE (the detail text names the first failing field). The
 * handle is set only on success. */
VIX_WUR int vix_load_metalib_fp(LPVIXMETALIB* ppstLib, FILE* fp);

/* Copies a library out of a buffer. *piLen holds the buffer length on entry and the bytes
 * consumed (iSize) on success. Checks: null arguments VIX_ERROR_INVALID_PARAM; length below 360
 * VIX_ERROR_BUF_TOO_SHORT; platform neither 32 nor 64 VIX_ERROR_PLATFORM; platform 32
 * VIX_ERROR_BUILD_VERSION; iSize above the length VIX_ERROR_BUF_TOO_SHORT; then the magic,
 * platform, checksum and block checks of vix_load_metalib_fp. */
VIX_WUR int vix_load_metalib_buf(LPVIXMETALIB* ppstLib, const void* pvBuff, size_t* piLen);

/* Recomputes the checksum (nBuild > 9) and writes iSize bytes. VIX_ERROR_OPEN_FILE_WRITE when
 * the path cannot be opened ("wb"), VIX_ERROR_WRITE_FILE on a short write,
 * VIX_ERROR_INVALID_PARAM for null arguments or a library failing the format check. */
VIX_WUR int vix_save_metalib(LPVIXMETALIB pstLib, const char* pszPath);
VIX_WUR int vix_save_metalib_fp(LPVIXMETALIB pstLib, FILE* fp);

/* Writes the 64-bit form and right after it the 32-bit form of the same library (as made by
 * vix_make_lib32), each with its checksum recomputed, so that one file serves both platforms;
 * the 64-bit loaders read the first. */
VIX_WUR int vix_save_metalib_compatible(LPVIXMETALIB32 pstLib32, LPVIXMETALIB pstLib64,
                                        const char* pszPath);
VIX_WUR int vix_save_metalib_fp_compatible(LPVIXMETALIB32 pstLib32, LPVIXMETALIB pstLib64,
                                           FILE* fp);

/* The 32-bit form of a library, in a new heap block released with vix_free_lib32. It has the
 * same capacities, counts, header values and strings; every record is narrowed to its 32-bit
 * layout and every reference moved to where its target lands. Each meta is written as header,
 * entries, indexes, then its index columns and primary-key list; each macro group as record,
 * name-ordered then value-ordered indexes. Sizes, offsets or a block that do not fit 32 bits
 * give VIX_ERROR_LIB_PARAM. */
VIX_WUR int vix_make_lib32(LPVIXMETALIB32* ppstLib32, const VIXMETALIB* pstLib);
void vix_free_lib32(LPVIXMETALIB32* ppstLib32);

/* Recomputes and stores the checksum of a 64-bit or 32-bit library (nBuild > 9). */
void vix_update_checksum(LPVIXMETALIB pstLib);
void vix_update_checksum32(LPVIXMETALIB32 pstLib);

/* Compares the library's MD5 digest, written as 32 lower-case hexadecimal digits, with
 * pszDigest (33 bytes including the terminator); VIX_ERROR_DIGEST_MISMATCH when they differ,
 * VIX_ERROR_BUILD_VERSION for a library failing the format check. */
VIX_WUR int vix_verify_metalib(const VIXMETALIB* pstLib, const char* pszDigest);

/* vix_load_metalib then vix_verify_metalib; on a mismatch the block is freed and the handle
 * left untouched. */
VIX_WUR int vix_load_verify_metalib(LPVIXMETALIB* ppstLib, const char* pszPath,
                                    const char* pszDigest);

/* ---- library ---- */

int vix_get_meta_num(const VIXMETALIB* pstLib);
int vix_get_metalib_version(const VIXMETALIB* pstLib);
int vix_get_metalib_build_version(const VIXMETALIB* pstLib);
int vix_get_metalib_id(const VIXMETALIB* pstLib);
const char* vix_get_metalib_name(const VIXMETALIB* pstLib);

/* Binary search of the name table (byte-wise order). */
const VIXMETA* vix_get_meta_by_name(const VIXMETALIB* pstLib, const char* pszName);

/* Binary search of the ID table; the identifier -1 (0xFFFFFFFF) is refused at once, without
 * touching the last error. */
const VIXMETA* vix_get_meta_by_id(const VIXMETALIB* pstLib, int iID);

/* Meta iIdx in definition order, or null outside [0, iCurMetaNum). */
const VIXMETA* vix_get_meta_by_index(const VIXMETALIB* pstLib, int iIdx);

/* The library that holds a meta. */
const VIXMETALIB* vix_get_metalib_of_meta(const VIXMETA* pstMeta);

/* ---- meta ---- */

const char* vix_get_meta_name(const VIXMETA* pstMeta);
int vix_get_meta_id(const VIXMETA* pstMeta);
size_t vix_get_meta_size(const VIXMETA* pstMeta); /* host size of one instance */
int vix_get_meta_type(const VIXMETA* pstMeta);    /* VIX_TYPE_UNION or VIX_TYPE_STRUCT */
int vix_get_meta_based_version(const VIXMETA* pstMeta);
int vix_get_meta_current_version(const VIXMETA* pstMeta);
const char* vix_get_meta_desc(const VIXMETA* pstMeta);
const char* vix_get_meta_customattr(const VIXMETA* pstMeta);
const char* vix_get_meta_customattr2(const VIXMETA* pstMeta);
int vix_get_entry_num(const VIXMETA* pstMeta);
int vix_get_max_id_of_meta_entries(const VIXMETA* pstMeta);

/* Primary-key members (*ppstKeys, *piNum; null and 0 when there are none). */
VIX_WUR int vix_get_meta_primarykey(const VIXDBKEYINFO** ppstKeys, int* piNum,
                                    const VIXMETA* pstMeta);

/* The table-splitting key as a list of 0 or 1 members. */
VIX_WUR int vix_get_meta_splittablekey(const VIXDBKEYINFO** ppstKeys, int* piNum,
                                       const VIXMETA* pstMeta);

/* ---- entries ---- */

/* Entry iIdx, or null when iIdx is outside [0, iEntriesNum). */
const VIXMETAENTRY* vix_get_entry_by_index(const VIXMETA* pstMeta, int iIdx);

/* Linear search by name: 0 and *piIdx; a meta without entries VIX_ERROR_INVALID_PARAM; a name
 * not found stores -1 and returns -1. */
VIX_WUR int vix_get_entry_by_name(int* piIdx, const VIXMETA* pstMeta, const char* pszName);

/* By identifier. In a struct: the first entry that has an identifier (wFlag 0x0008) equal to
 * iID, else -1 stored and returned. In a union, the branch that selector value iID picks: the
 * entry whose range [iMinId, iMaxId] holds iID (a direct hit at iID - first iMinId, then a
 * bisection over the ranges with 16 or more entries, a linear scan below 16), else the default
 * branch: index 0 when the first entry has no range (return 0), else -1 stored and returned. */
VIX_WUR int vix_get_entry_by_id(int* piIdx, const VIXMETA* pstMeta, int iID);

int vix_get_entry_id(const VIXMETAENTRY* pstEntry);
const char* vix_get_entry_name(const VIXMETAENTRY* pstEntry);
const char* vix_get_entry_cname(const VIXMETAENTRY* pstEntry);
const char* vix_get_entry_desc(const VIXMETAENTRY* pstEntry);
int vix_get_entry_type(const VIXMETAENTRY* pstEntry); /* type-table index */
int vix_get_entry_count(const VIXMETAENTRY* pstEntry);
size_t vix_get_entry_unitsize(const VIXMETAENTRY* pstEntry); /* host size of one element */
int vix_get_entry_version(const VIXMETAENTRY* pstEntry);
VIXOFF vix_get_entry_offset(const VIXMETAENTRY* pstEntry); /* host offset in its meta */
/* The member holding the element count / selecting the union branch, or null. */
const VIXMETAENTRY* vix_get_entry_refer(const VIXMETAENTRY* pstEntry);
const VIXMETAENTRY* vix_get_entry_select(const VIXMETAENTRY* pstEntry);
const VIXMACROSGROUP* vix_get_entry_macrosgroup(const VIXMETAENTRY* pstEntry);
const char* vix_get_entry_customattr(const VIXMETAENTRY* pstEntry);
const char* vix_get_entry_customattr2(const VIXMETAENTRY* pstEntry);
/* The default value and, when piLen is not null, its length (iDefaultValLen). */
const char* vix_get_entry_defaultvalue(const VIXMETAENTRY* pstEntry, size_t* piLen);
/* The meta of a composite member, or null. */
const VIXMETA* vix_get_entry_type_meta(const VIXMETAENTRY* pstEntry);
/* The meta that holds an entry. */
const VIXMETA* vix_get_meta_of_entry(const VIXMETAENTRY* pstEntry);

/* ---- macros and macro groups ---- */

/* Linear search: 0 and *piValue; no macros or an unknown name VIX_ERROR_MACRO_UNDEFINED. */
VIX_WUR int vix_get_macro_value(int* piValue, const VIXMETALIB* pstLib, const char* pszName);
const VIXMACRO* vix_get_macro_by_name(const VIXMETALIB* pstLib, const char* pszName);
/* Name of the first macro (definition order) with the value, or null. */
const char* vix_get_macro_name_by_value(const VIXMETALIB* pstLib, int iValue);
int vix_get_metalib_macro_num(const VIXMETALIB* pstLib);
const VIXMACRO* vix_get_metalib_macro_by_index(const VIXMETALIB* pstLib, int iIdx);
const char* vix_get_macro_name_by_ptr(const VIXMETALIB* pstLib, const VIXMACRO* pstMacro);
const char* vix_get_macro_desc_by_ptr(const VIXMETALIB* pstLib, const VIXMACRO* pstMacro);
VIX_WUR int vix_get_macro_value_by_ptr(int* piValue, const VIXMACRO* pstMacro);
/* The first group (map order) that holds the macro, or null. */
const VIXMACROSGROUP* vix_get_macro_macrosgroup(const VIXMETALIB* pstLib, const VIXMACRO* pstMacro);

int vix_get_macrosgroup_num(const VIXMETALIB* pstLib);
const VIXMACROSGROUP* vix_get_macrosgroup_by_index(const VIXMETALIB* pstLib, int iIdx);
/* Linear search of the group map comparing szName. */
const VIXMACROSGROUP* vix_get_macrosgroup_by_name(const VIXMETALIB* pstLib, const char* pszName);
const char* vix_get_macrosgroup_name(const VIXMACROSGROUP* pstGroup);
int vix_get_macrosgroup_macro_num(const VIXMACROSGROUP* pstGroup);
/* Member iIdx of a group in value order, or null. */
const VIXMACRO* vix_get_macrosgroup_macro_by_index(const VIXMETALIB* pstLib,
                                                   const VIXMACROSGROUP* pstGroup, int iIdx);
/* The macro of an entry's group with the name (binary search of the name-ordered indexes) or
 * the value (binary search of the value-ordered indexes; the first of equal values), or
 * null when the entry has no group or the group no such macro. */
const VIXMACRO* vix_get_bindmacro_by_name(const VIXMETAENTRY* pstEntry, const char* pszName);
const VIXMACRO* vix_get_bindmacro_by_value(const VIXMETAENTRY* pstEntry, int iValue);

/* ---- indexes ---- */

/* Linear searches of a meta's indexes. */
const VIXMETAINDEX* vix_get_index_by_name(const VIXMETA* pstMeta, const char* pszName);
const VIXMETAINDEX* vix_get_index_by_id(const VIXMETA* pstMeta, int iID);
int vix_get_index_id(const VIXMETAINDEX* pstIndex);
const char* vix_get_index_name(const VIXMETAINDEX* pstIndex);
const char* vix_get_index_customattr(const VIXMETAINDEX* pstIndex);
const char* vix_get_index_customattr2(const VIXMETAINDEX* pstIndex);
/* Columns of an index (*ppstColumns, *piNum; null and 0 when it has none). */
VIX_WUR int vix_get_index_columns(const VIXDBKEYINFO** ppstColumns, int* piNum,
                                  const VIXMETAINDEX* pstIndex);

/* ---- member paths and offsets ---- */

/* A member path is a dotted list of entry names from a meta, each name optionally followed by
 * an element index: "hdr.count", "items[3].id". A union member is entered through the name of
 * its branch. At most VIX_MAX_NESTING names. */

/* The entry a path names, or null. */
const VIXMETAENTRY* vix_get_entry_by_path(const VIXMETA* pstMeta, const char* pszPath);

/* The entry (ppstEntry) and the host offset from the meta's start (piHOff) of the member a
 * path names; either output may be null. VIX_ERROR_BAD_ENTRY_PATH for a malformed path,
 * VIX_ERROR_ENTRY_NOT_FOUND for an unknown name, VIX_ERROR_ARRAY_INDEX_OUT for an element
 * index not below the count, VIX_ERROR_ENTRY_NOT_COMPOSITE for a name after a scalar. */
VIX_WUR int vix_entry_path_to_off(const VIXMETA* pstMeta, const VIXMETAENTRY** ppstEntry,
                                  VIXOFF* piHOff, const char* pszPath);

/* The path of the innermost member whose host bytes hold offset iHOff of the meta, with the
 * element index of every array on the way ("items[3].id"); in a union the first branch that
 * holds it. An offset in the padding of a nested record gives the path of that record.
 * VIX_ERROR_OFFSET_NOT_FOUND when no member of the meta holds the offset,
 * VIX_ERROR_OUT_BUF_TOO_SMALL when the path does not fit pszBuff (iBuff bytes). */
VIX_WUR int vix_entry_off_to_path(const VIXMETA* pstMeta, VIXOFF iHOff, char* pszBuff,
                                  size_t iBuff);

/* Resolves a size description for members of pstMeta into *pstSizeInfo. pszSpec is either an
 * integer type name of 1, 2, 4 or 8 bytes (a size prefix of that width: iUnitSize set, both
 * offsets -1) or the path of an integer member (its host and network offsets and width).
 * idxSizeType receives the type-table index. VIX_ERROR_BAD_SIZEINFO otherwise. */
VIX_WUR int vix_sizeinfo_to_off(VIXSIZEINFO* pstSizeInfo, const VIXMETA* pstMeta,
                                const char* pszSpec);

/* ---- comparison ---- */

/* Compares an older library (or meta) with a newer one:
 *  - VIX_XML_EQUIVALENT when they describe the same layout: the same metas by name, each with
 *    the same type, identifier, versions, host and network sizes, alignment and entries, and
 *    every entry with the same name, identifier, version, type (nested metas by name), count,
 *    sizes, offsets, flags, union range and count / selector members;
 *  - VIX_XML_COMPATIBLE when the newer one only adds: metas whose base version is above the
 *    older library's version, and entries after the old ones whose version is above the old
 *    meta's current version, every old entry keeping its offsets (a nested meta may itself be
 *    compatible);
 *  - VIX_XML_UNCOMPATIBLE otherwise.
 * Descriptions, display names, defaults, macros and indexes do not take part. Null arguments or
 * a library failing the format check give VIX_ERROR_INVALID_PARAM. */
VIX_WUR int vix_compare_metalib(const VIXMETALIB* pstOld, const VIXMETALIB* pstNew);
VIX_WUR int vix_compare_meta(const VIXMETA* pstOld, const VIXMETA* pstNew);

#ifdef __cplusplus
}
#endif

#endif /* VIX_VIX_METALIB_H */
