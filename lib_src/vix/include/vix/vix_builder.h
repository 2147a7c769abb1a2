/*
 * vix_builder.h: writing metadata libraries: macros, macro groups, metas with their entries,
 * indexes and keys, host and network layout, sorted lookup tables and the checksum.
 *
 * Conventions:
 *  - A builder writes into one library. Either the caller lays the library out with
 *    vix_init_lib (sized with vix_lib_param_for_counts) and opens a builder over it, and a full
 *    area gives VIX_ERROR_LIB_PARAM; or the builder owns a block that grows as needed
 *    (vix_builder_open_growing) and vix_builder_finish hands out a copy of exactly the size
 *    used.
 *  - Metas are written one at a time: vix_builder_begin_meta, its entries, then its indexes
 *    and keys, then vix_builder_end_meta, which completes the layout. A member used as a count,
 *    selector, size or key must be defined before the member or call that names it; a
 *    composite member's meta must be complete.
 *  - Host layout is that of the equivalent C declaration under GCC: members at natural
 *    alignment (date, time and ip as 32-bit, datetime as 64-bit integers, a composite at its
 *    meta's alignment), a union as large as its largest member, the size rounded up to the
 *    alignment. A packed meta has no padding (alignment 1); iCustomAlign n caps every member's
 *    alignment at n, like #pragma pack(n). Network layout is packed: every member at the sum
 *    of the full sizes before it, values at their type widths.
 *  - Description records: fill them with vix_meta_desc_init / vix_entry_desc_init /
 *    vix_index_desc_init, then set what is needed. Strings are copied into the library; null
 *    and "" optional strings are stored as absent. Names are identifiers (letters, digits,
 *    '_', not starting with a digit).
 *  - Every function returns 0 or a runtime code and leaves a detail text (vix_error.h) naming
 *    the meta and entry concerned. A failed call changes nothing: every check and the room
 *    are settled before anything is written. After a failure of vix_builder_end_meta the meta
 *    stays open.
 *  - A builder is used by one thread at a time.
 */
#ifndef VIX_VIX_BUILDER_H
#define VIX_VIX_BUILDER_H

#include <stddef.h>
#include <stdint.h>

#include "vix/vix_base.h"
#include "vix/vix_metalib.h"

/* Meta-area bytes of one meta with the given numbers of entries, indexes, index columns (all
 * indexes together) and primary-key members. */
#define VIX_META_AREA_BYTES(entries, indexes, columns, keys)                          \
  ((uint64_t)sizeof(VIXMETA) + (uint64_t)sizeof(VIXMETAENTRY) * (uint64_t)(entries) + \
   (uint64_t)sizeof(VIXMETAINDEX) * (uint64_t)(indexes) +                             \
   (uint64_t)sizeof(VIXDBKEYINFO) * ((uint64_t)(columns) + (uint64_t)(keys)))

/* Macro-group-area bytes of one group of n macros. */
#define VIX_GROUP_AREA_BYTES(n) ((uint64_t)sizeof(VIXMACROSGROUP) + 8u * (uint64_t)(n))

/* What a library must hold. String bytes count every stored string with its terminator. */
typedef struct tagVIXLibCounts {
  int32_t iMacros;
  int32_t iMetas;
  int32_t iMacrosGroups;
  uint64_t iMetaBytes; /* sum of VIX_META_AREA_BYTES */
  uint64_t iStrBytes;
  uint64_t iGroupBytes; /* sum of VIX_GROUP_AREA_BYTES */
} VIXLIBCOUNTS, *LPVIXLIBCOUNTS;

typedef struct tagVIXMetaDesc {
  const char* pszName;
  int32_t iType;             /* VIX_TYPE_STRUCT (default) or VIX_TYPE_UNION */
  int32_t iID;               /* identifier; -1 (default) for none */
  int32_t iBaseVersion;      /* default 0 */
  int32_t iCurVersion;       /* 0 (default): the highest of the base and the entries' versions */
  int32_t iPacked;           /* non-zero: no padding */
  int32_t iCustomAlign;      /* 0 (default) or a power of two up to 64: cap on member alignment */
  uint64_t iCustomHUnitSize; /* 0, or a host size at least the computed one */
  uint32_t uFlags;
  const char* pszDesc;
  const char* pszCName;
  const char* pszCustomAttr;
  const char* pszCustomAttr2;
  const char* pszSizeInfo;         /* how an instance's size is encoded (vix_sizeinfo_to_off) */
  const char* pszVersionIndicator; /* path of the member holding the instance's version */
  const char* pszSortKey;          /* path of the sort-key member */
  const char* pszDependOn;         /* name of a meta this one depends on */
  const char* pszSplitTableKey;    /* path of the table-splitting key member */
  int32_t iSplitTableFactor;
  int16_t nSplitTableRuleID;
} VIXMETADESC, *LPVIXMETADESC;

typedef struct tagVIXEntryDesc {
  const char* pszName;
  /* The type: pszType names a base type (ignoring case) or a complete meta; when null,
   * iMetaIdx >= 0 names a meta by definition index, else iTypeIdx a row of the type table. */
  const char* pszType;
  int32_t iTypeIdx;      /* default -1 */
  int32_t iMetaIdx;      /* default -1 */
  int32_t iCount;        /* elements, default 1; 0 for an open array as the last struct member */
  const char* pszRefer;  /* path of the member holding the element count */
  const char* pszSelect; /* path of the member selecting the branch of a union-typed member */
  int32_t iMinId;        /* branch range in a union meta; default none (iMinId > iMaxId) */
  int32_t iMaxId;
  int32_t iHasID; /* non-zero: iID is the entry's identifier (wFlag 0x0008) */
  int32_t iID;
  int32_t iVersion; /* 0 (default): the meta's base version */
  const char* pszDefault;
  uint64_t iDefaultLen;       /* 0: strlen(pszDefault) */
  const char* pszMacrosGroup; /* name of the macro group naming the member's values */
  const char* pszDesc;
  const char* pszCName;
  const char* pszCustomAttr;
  const char* pszCustomAttr2;
  uint64_t iCustomHUnitSize; /* element host size at least the natural one; 0 for natural */
  const char* pszSizeInfo;   /* size prefix or size member (vix_sizeinfo_to_off) */
  uint16_t wFlag;            /* further flags, passed through */
  char chDBFlag;
  char chOrder;
  int32_t iIO;
  uint64_t iFlag;
} VIXENTRYDESC, *LPVIXENTRYDESC;

typedef struct tagVIXIndexDesc {
  const char* pszName;
  int32_t iID;
  int32_t iVersion; /* 0: the meta's base version */
  int32_t iIndexType;
  int32_t iIsUnique;
  const char* pszDesc;
  const char* pszCName;
  const char* pszCustomAttr;
  const char* pszCustomAttr2;
  const char* const* ppszColumns; /* member paths */
  int32_t iColumnNum;
} VIXINDEXDESC, *LPVIXINDEXDESC;

typedef struct tagVIXBuilder VIXBUILDER, *LPVIXBUILDER;

#ifdef __cplusplus
extern "C" {
#endif

/* Capacities and iSize of a parameter record for the counts (area sizes rounded up to 8 so
 * that every record stays aligned); the other fields are left as they are.
 * VIX_ERROR_INVALID_PARAM for null or negative counts. */
VIX_WUR int vix_lib_param_for_counts(VIXLIBPARAM* pstParam, const VIXLIBCOUNTS* pstCounts);

void vix_meta_desc_init(VIXMETADESC* pstDesc);
void vix_entry_desc_init(VIXENTRYDESC* pstDesc);
void vix_index_desc_init(VIXINDEXDESC* pstDesc);

/* A builder over a library just laid out by vix_init_lib (empty, caller-owned, must outlive
 * the builder). VIX_ERROR_INVALID_PARAM when it is not an empty 64-bit library, or when it has
 * macro-group capacity but its meta area and string buffer sizes are not multiples of 8 (the
 * group records would not be aligned; vix_lib_param_for_counts rounds them). */
VIX_WUR int vix_builder_open(LPVIXBUILDER* ppstBuilder, LPVIXMETALIB pstLib);

/* A builder with a block of its own. The record gives the identifier, version, tag-set version,
 * flags and name; its capacities and area sizes are starting sizes (0 for small defaults) and
 * grow as needed; iSize is ignored. */
VIX_WUR int vix_builder_open_growing(LPVIXBUILDER* ppstBuilder, const VIXLIBPARAM* pstParam);

/* Releases the builder (and its own block); sets *ppstBuilder to null. */
void vix_builder_close(LPVIXBUILDER* ppstBuilder);

/* The library being written: valid until the next builder call (a growing block moves). */
const VIXMETALIB* vix_builder_lib(const VIXBUILDER* pstBuilder);

/* A macro; names are unique (VIX_ERROR_DUP_MACRO_NAME). */
VIX_WUR int vix_builder_add_macro(LPVIXBUILDER pstBuilder, const char* pszName, int iValue,
                                  const char* pszDesc);

/* A macro group of existing macros named in ppszMacros (iNum of them, each at most once);
 * the group's name is at most 127 bytes and unique. */
VIX_WUR int vix_builder_add_macrosgroup(LPVIXBUILDER pstBuilder, const char* pszName,
                                        const char* pszDesc, const char* const* ppszMacros,
                                        int iNum);

/* Starts a meta (names unique, identifiers other than -1 unique). */
VIX_WUR int vix_builder_begin_meta(LPVIXBUILDER pstBuilder, const VIXMETADESC* pstDesc);

/* Appends an entry to the open meta; not after an index or the primary key. */
VIX_WUR int vix_builder_add_entry(LPVIXBUILDER pstBuilder, const VIXENTRYDESC* pstDesc);

/* Shorthand: an entry with a name, a type (base type or meta name) and a count. */
VIX_WUR int vix_builder_add_simple_entry(LPVIXBUILDER pstBuilder, const char* pszName,
                                         const char* pszType, int iCount);

/* An index of the open meta over existing members; index names are unique in the meta. */
VIX_WUR int vix_builder_add_index(LPVIXBUILDER pstBuilder, const VIXINDEXDESC* pstDesc);

/* The primary key of the open meta (once per meta). */
VIX_WUR int vix_builder_set_primarykey(LPVIXBUILDER pstBuilder, const char* const* ppszPaths,
                                       int iNum);

/* Completes the open meta: sizes, alignment, version, meta-level paths. */
VIX_WUR int vix_builder_end_meta(LPVIXBUILDER pstBuilder);

/* Completes the library: no meta may be open; sets the checksum and checks the whole block
 * as the loaders do. Fixed mode: *ppstLib is the caller's library. Growing mode: *ppstLib is a
 * new heap block holding exactly what was written (capacities equal to the counts, at least
 * one meta slot), released with vix_free_lib. No further changes are accepted afterwards. */
VIX_WUR int vix_builder_finish(LPVIXBUILDER pstBuilder, LPVIXMETALIB* ppstLib);

#ifdef __cplusplus
}
#endif

#endif /* VIX_VIX_BUILDER_H */
