/* wlog_conf.h - configuration schema of the logging library.
 *
 * Conventions: plain fixed-size C records, filled by the host (usually from its configuration
 * file) and handed to wlog_init(). The library keeps pointers into them, so a WLOGCONF must
 * stay valid and unmoved until wlog_fini(). Text fields are NUL-terminated within their arrays.
 * Nothing here allocates or returns errors; see wlog.h for the functions.
 */
#ifndef WLOG_WLOG_CONF_H_
#define WLOG_WLOG_CONF_H_

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#define WLOG_NAME_LEN 64
#define WLOG_FORMAT_LEN 128
#define WLOG_DEFAULT_MAX_MSG_SIZE 8192
#define WLOG_MAX_CATEGORY 512
#define WLOG_CONF_MAGIC 1548
#define WLOG_DEFAULT_DNS_INTERNAL 300
#define WLOGFILE_PATTERN_LEN 128
#define WLOGNET_URL_LEN 128
#define WLOGNET_DEF_TIMEOUT 2000
#define WLOGVEC_MAX_ELEMENT 32
#define WLOG_VEC_FILTER 32
#define WLOGMEM_STRING_LEN 256
#define WLOGMEM_MIN_SIZE 10000000
#define WLOG_TERM_STDERR 0
#define WLOG_TERM_STDOUT 1
#define WLOG_DATA_TXT 0
#define WLOG_DATA_BIN 1
#define WLOGBIN_VER 1
#define WLOGBIN_MAGIC 55
#define WLOGBIN_ID_BASE 1
#define WLOGBIN_ID_HEAD 2
#define WLOGBIN_ID_PKG 3
#define WLOGBIN_MAX_DATA 64000

/* Default layout pattern of a category when the configuration file gives none. */
#define WLOG_DEFAULT_FORMAT "[%d.%u][%h][(%f:%l) (%F)][%M][%p] %m%n"
#define WLOG_DEFAULT_CATEGORY_NAME "default"

/* Priorities: a lower value is more severe. WLOG_PRIORITY_NULL means "no bound". */
enum tagWLOG_PRIORITY {
  WLOG_PRIORITY_NULL = -1,
  WLOG_PRIORITY_FATAL = 0,
  WLOG_PRIORITY_ALERT = 100,
  WLOG_PRIORITY_CRIT = 200,
  WLOG_PRIORITY_ERROR = 300,
  WLOG_PRIORITY_WARN = 400,
  WLOG_PRIORITY_NOTICE = 500,
  WLOG_PRIORITY_INFO = 600,
  WLOG_PRIORITY_DEBUG = 700,
  WLOG_PRIORITY_TRACE = 800,
  WLOG_PRIORITY_NOTSET = 900,
  WLOG_PRIORITY_UNKNOWN = 1000
};

/* Device (appender) types. */
enum tagWLOG_DEV {
  WLOG_DEV_NO = 0,
  WLOG_DEV_FILE = 1,
  WLOG_DEV_NET = 2,
  WLOG_DEV_MEM = 3,
  WLOG_DEV_TERM = 4,
  WLOG_DEV_VEC = 16
};

/* Integer filter on a message id or class; an all-zero filter passes everything. */
typedef struct tagIntFilter {
  uint32_t dwStart;
  uint32_t dwCount;
  int16_t nMod;
  int16_t nRes;
  int16_t nModStart;
  int16_t nModCount;
} INTFILTER, *LPINTFILTER;

typedef struct tagWLOGFilter {
  INTFILTER stIDFilter;
  INTFILTER stClsFilter;
} WLOGFILTER, *LPWLOGFILTER;

typedef struct tagWLOGFilterVec {
  int32_t iCount;
  WLOGFILTER astFilters[WLOG_VEC_FILTER];
} WLOGFILTERVEC, *LPWLOGFILTERVEC;

/* File device. */
typedef struct tagWLOGDevFile {
  char szPattern[WLOGFILE_PATTERN_LEN];
  int32_t iBuffSize;
  uint32_t dwSizeLimit;
  int32_t iPrecision;
  int32_t iMaxRotate;
  int32_t iSyncTime;
  int32_t iNoFindLatest;
  int32_t iRotateStick;
  int32_t iDropBinaryHead;
} WLOGDEVFILE, *LPWLOGDEVFILE;

/* Network device. */
typedef struct tagWLOGDevNet {
  char szUrl[WLOGNET_URL_LEN];
  int32_t iBuffSize;
  int32_t iSendBuff;
  int32_t iRecvBuff;
  int32_t iAutoReconnect;
  int32_t iMaxRetry;
  int32_t iConnTimeout;
  int32_t iSendTimeout;
} WLOGDEVNET, *LPWLOGDEVNET;

/* Shared-memory ring device. */
typedef struct tagWLOGDevMem {
  int32_t iEnable;
  char szUri[WLOGMEM_STRING_LEN];
  int32_t iBuffSize;
  char szPattern[WLOGMEM_STRING_LEN];
  uint32_t dwSizeLimit;
} WLOGDEVMEM, *LPWLOGDEVMEM;

/* Terminal device: iStdType is WLOG_TERM_STDERR or WLOG_TERM_STDOUT. */
typedef struct tagWLOGDevTerm {
  int32_t iStdType;
} WLOGDEVTERM, *LPWLOGDEVTERM;

typedef union tagWLOGDevElementSelector {
  WLOGDEVFILE stFile;
  WLOGDEVNET stNet;
} WLOGDEVELEMENTSELECTOR;

/* One element of a vector device: a file or network device with its own filters. */
typedef struct tagWLOGDevElement {
  int32_t iID;
  int32_t iCtrl;
  WLOGFILTERVEC stFilterVec;
  int32_t iType; /* WLOG_DEV_FILE or WLOG_DEV_NET */
  WLOGDEVELEMENTSELECTOR stDevice;
} WLOGDEVELEMENT, *LPWLOGDEVELEMENT;

typedef struct tagWLOGDevVec {
  int32_t iInst;
  int32_t iCount;
  WLOGDEVELEMENT astElements[WLOGVEC_MAX_ELEMENT];
} WLOGDEVVEC, *LPWLOGDEVVEC;

typedef union tagWLOGDevSelector {
  WLOGDEVFILE stFile;
  WLOGDEVNET stNet;
  WLOGDEVMEM stMem;
  WLOGDEVTERM stTerm;
  WLOGDEVVEC stVec;
} WLOGDEVSELECTOR;

/* Any device: iType (a tagWLOG_DEV value) selects the member of stDevice. */
typedef struct tagWLOGDevAny {
  int32_t iType;
  WLOGDEVSELECTOR stDevice;
} WLOGDEVANY, *LPWLOGDEVANY;

/* One category. */
typedef struct tagWLOGCategory {
  char szName[WLOG_NAME_LEN];     /* dots separate levels: a.b.c has the parent a.b */
  int32_t iPriorityHigh;          /* reject P < iPriorityHigh unless -1 */
  int32_t iPriorityLow;           /* reject P > iPriorityLow unless -1 */
  WLOGFILTERVEC stFilter;         /* id/class filters */
  int32_t iLevelDispatch;         /* non-zero: also hand written messages to the parent */
  int32_t iMustSucc;              /* non-zero: appender init failure always fails wlog_init */
  int32_t iMaxMsgSize;            /* message buffer size; < 1 means 8192 */
  char szFormat[WLOG_FORMAT_LEN]; /* layout pattern; empty writes the bare message */
  char szForwardCat[WLOG_FORMAT_LEN];
  WLOGDEVANY stDevice;
} WLOGCATEGORY, *LPWLOGCATEGORY;

/* The whole configuration. */
typedef struct tagWLOGConf {
  int32_t iMagic; /* WLOG_CONF_MAGIC */
  int32_t iPriorityHigh;
  int32_t iPriorityLow;
  int32_t iDelayInit;
  int32_t iSuppressError;
  int32_t iAsyncDnsInternal;
  int32_t iCount;
  WLOGCATEGORY astCategoryList[WLOG_MAX_CATEGORY];
} WLOGCONF, *LPWLOGCONF;

#ifdef __cplusplus
}
#endif

#endif /* WLOG_WLOG_CONF_H_ */
