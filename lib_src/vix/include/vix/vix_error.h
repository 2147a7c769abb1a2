/*
 * vix_error.h: result codes of the vix runtime, the process-wide last error, the per-thread
 * error detail text and the message table.
 *
 * Conventions:
 *  - Every failure code is VIX_ERRCODE(n) = 0x82010400 + n with n in 0..138, negative when read
 *    as an int; success is 0. vix_error_string(code) gives the message of code n (GBK text).
 *  - The last error is one process-wide integer set by lookups that return a pointer (for
 *    instance when a library fails the format check); a success never resets it.
 *  - The error detail is a text written by failing operations. A thread that called
 *    vix_init_for_thread has a buffer of its own; other threads share one process-wide buffer.
 *    The returned text stays valid until the next vix call of the same thread.
 */
#ifndef VIX_VIX_ERROR_H
#define VIX_VIX_ERROR_H

#include "vix/vix_base.h"

#define VIX_ERROR_BASE 0x82010400u
#define VIX_ERROR_COUNT 139 /* messages in the table: n = 0..138 */
#define VIX_ERRCODE(n) ((int)(VIX_ERROR_BASE + (unsigned)(n)))

/* Size of the per-thread and process-wide detail buffers. */
#define VIX_ERROR_DETAIL_BUFF 1024

/* Failure codes; index 0 of the table ("no error") is the message of every code >= 0. */
#define VIX_ERROR_INVALID_CUTOFF_VERSION \
  VIX_ERRCODE(0x01) /* 剪裁版本无效，不能小于元数据的基础版本 */
#define VIX_ERROR_TOO_COMPLEX_META VIX_ERRCODE(0x02) /* 元数据描述过于复杂，嵌套超过32层 */
#define VIX_ERROR_NO_SPACE_TO_PACK VIX_ERRCODE(0x03)  /* 打包缓冲区空间不够 */
#define VIX_ERROR_NO_DATA_TO_UNPACK VIX_ERRCODE(0x04) /* 解包数据不完整 */
#define VIX_ERROR_MINUS_REFER_VALUE VIX_ERRCODE(0x05) /* 引用成员的值为负数 */
#define VIX_ERROR_REFER_SURPASS_COUNT VIX_ERRCODE(0x06) /* 引用成员的值超过数组的最大元素个数 */
#define VIX_ERROR_BAD_VERSION_INDICATOR VIX_ERRCODE(0x07) /* 版本指示器的值不正确 */
#define VIX_ERROR_NO_UNION_BRANCH VIX_ERRCODE(0x08) /* 联合体选择器的值没有对应的分支 */
#define VIX_ERROR_NO_MEMORY VIX_ERRCODE(0x09)       /* 分配存储空间失败 */
#define VIX_ERROR_MACRO_TABLE_FULL VIX_ERRCODE(0x0A) /* 元数据库的宏定义空间已满 */
#define VIX_ERROR_META_TABLE_FULL VIX_ERRCODE(0x0B)  /* 元数据库的元数据空间已满 */
#define VIX_ERROR_STRBUF_FULL VIX_ERRCODE(0x0C)      /* 元数据库的字符串缓冲区已满 */
#define VIX_ERROR_META_AREA_FULL VIX_ERRCODE(0x0D)   /* 元数据库的元数据存储区已满 */
#define VIX_ERROR_GROUP_AREA_FULL VIX_ERRCODE(0x0E) /* 元数据库的宏定义组存储区已满 */
#define VIX_ERROR_DUP_META_NAME VIX_ERRCODE(0x0F)   /* 元数据名字重复 */
#define VIX_ERROR_DUP_META_ID VIX_ERRCODE(0x10)     /* 元数据标识重复 */
#define VIX_ERROR_DUP_ENTRY_NAME VIX_ERRCODE(0x11)  /* 成员名字重复 */
#define VIX_ERROR_DUP_MACRO_NAME VIX_ERRCODE(0x12)  /* 宏名字重复 */
#define VIX_ERROR_LIB_PARAM VIX_ERRCODE(0x13)       /* 元数据库参数不正确 */
#define VIX_ERROR_CHECKSUM VIX_ERRCODE(0x14)        /* 元数据库校验和不正确 */
#define VIX_ERROR_DUP_GROUP_NAME VIX_ERRCODE(0x15)  /* 宏定义组名字重复 */
#define VIX_ERROR_META_NOT_FOUND VIX_ERRCODE(0x16)  /* 没有找到指定的元数据 */
#define VIX_ERROR_ENTRY_NOT_FOUND VIX_ERRCODE(0x17) /* 没有找到指定的成员 */
#define VIX_ERROR_GROUP_NOT_FOUND VIX_ERRCODE(0x18) /* 没有找到指定的宏定义组 */
#define VIX_ERROR_BAD_ENTRY_TYPE VIX_ERRCODE(0x19)  /* 成员的类型无效 */
#define VIX_ERROR_BAD_META_TYPE VIX_ERRCODE(0x1A) /* 元数据的类型必须是结构体或联合体 */
#define VIX_ERROR_BAD_COUNT VIX_ERRCODE(0x1B)     /* 数组元素个数无效 */
#define VIX_ERROR_BAD_ENTRY_PATH VIX_ERRCODE(0x1C)     /* 成员路径无效 */
#define VIX_ERROR_MACRO_UNDEFINED VIX_ERRCODE(0x1D)    /* 该宏名没有定义 */
#define VIX_ERROR_REFER_NOT_INTEGER VIX_ERRCODE(0x1E)  /* 引用成员必须是整数类型 */
#define VIX_ERROR_SELECT_NOT_INTEGER VIX_ERRCODE(0x1F) /* 选择器成员必须是整数类型 */
#define VIX_ERROR_REFER_AFTER_ENTRY VIX_ERRCODE(0x20) /* 引用成员必须定义在使用它的成员之前 */
#define VIX_ERROR_SELECT_FOR_NON_UNION VIX_ERRCODE(0x21) /* 只有联合体类型的成员才能指定选择器 */
#define VIX_ERROR_UNION_WITHOUT_SELECT VIX_ERRCODE(0x22) /* 联合体类型的成员没有指定选择器 */
#define VIX_ERROR_BAD_UNION_RANGE VIX_ERRCODE(0x23)   /* 联合体分支的取值范围无效 */
#define VIX_ERROR_META_NOT_FINISHED VIX_ERRCODE(0x24) /* 元数据还没有完成定义 */
#define VIX_ERROR_META_FINISHED VIX_ERRCODE(0x25) /* 元数据已经完成定义，不能再添加成员 */
#define VIX_ERROR_META_CONTAINS_SELF VIX_ERRCODE(0x26) /* 元数据不能包含自身 */
#define VIX_ERROR_BAD_ALIGN VIX_ERRCODE(0x27)          /* 对齐方式无效 */
#define VIX_ERROR_BAD_VERSION VIX_ERRCODE(0x28)        /* 版本号无效 */
#define VIX_ERROR_ENTRY_VERSION_BELOW_META \
  VIX_ERRCODE(0x29) /* 成员的版本不能小于所在元数据的基础版本 */
#define VIX_ERROR_BAD_ID VIX_ERRCODE(0x2A)                /* 标识值无效 */
#define VIX_ERROR_BAD_SIZEINFO VIX_ERRCODE(0x2B)          /* 长度信息无效 */
#define VIX_ERROR_BAD_DEFAULT_VALUE VIX_ERRCODE(0x2C)     /* 成员的缺省值无效 */
#define VIX_ERROR_BAD_CUSTOM_SIZE VIX_ERRCODE(0x2D)       /* 自定义存储空间大小无效 */
#define VIX_ERROR_BAD_DATETIME VIX_ERRCODE(0x2E)          /* entry的datetime属性值不正确 */
#define VIX_ERROR_BAD_DATE VIX_ERRCODE(0x2F)              /* entry的date属性值不正确 */
#define VIX_ERROR_BAD_TIME VIX_ERRCODE(0x30)              /* entry的time属性值不正确 */
#define VIX_ERROR_BAD_IP VIX_ERRCODE(0x31)                /* entry的ip属性值不正确 */
#define VIX_ERROR_BAD_INDEX VIX_ERRCODE(0x32)             /* 索引定义无效 */
#define VIX_ERROR_DUP_INDEX_NAME VIX_ERRCODE(0x33)        /* 索引名字重复 */
#define VIX_ERROR_BAD_PRIMARY_KEY VIX_ERRCODE(0x34)       /* 主键定义无效 */
#define VIX_ERROR_BAD_SPLIT_KEY VIX_ERRCODE(0x35)         /* 分表键定义无效 */
#define VIX_ERROR_ENCODING_CONVERT VIX_ERRCODE(0x36)      /* 字符编码转换失败 */
#define VIX_ERROR_STRING_TOO_LONG VIX_ERRCODE(0x37)       /* 字符串太长 */
#define VIX_ERROR_NAME_TOO_LONG VIX_ERRCODE(0x38)         /* 名字太长 */
#define VIX_ERROR_EMPTY_NAME VIX_ERRCODE(0x39)            /* 名字不能为空 */
#define VIX_ERROR_BAD_NAME VIX_ERRCODE(0x3A)              /* 名字中含有无效字符 */
#define VIX_ERROR_OUT_BUF_TOO_SMALL VIX_ERRCODE(0x3B)     /* 输出缓冲区空间不够 */
#define VIX_ERROR_BAD_PRINT_FORMAT VIX_ERRCODE(0x3C)      /* 输出格式无效 */
#define VIX_ERROR_BAD_IOSTREAM VIX_ERRCODE(0x3D)          /* 输入输出流无效 */
#define VIX_ERROR_PRINT_FAILED VIX_ERRCODE(0x3E)          /* 输出成员的值失败 */
#define VIX_ERROR_SCAN_FAILED VIX_ERRCODE(0x3F)           /* 读取成员的值失败 */
#define VIX_ERROR_BAD_TEXT_INPUT VIX_ERRCODE(0x40)        /* 输入文本格式不正确 */
#define VIX_ERROR_UNKNOWN_ENTRY_IN_TEXT VIX_ERRCODE(0x41) /* 输入文本中的成员没有定义 */
#define VIX_ERROR_BAD_NUMBER VIX_ERRCODE(0x42)            /* 数值格式不正确 */
#define VIX_ERROR_BAD_HEX VIX_ERRCODE(0x43)               /* 十六进制数格式不正确 */
#define VIX_ERROR_BAD_OCT VIX_ERRCODE(0x44)               /* 八进制数格式不正确 */
#define VIX_ERROR_WRITE_FILE VIX_ERRCODE(0x45)            /* 写文件失败 */
#define VIX_ERROR_OPEN_FILE_WRITE VIX_ERRCODE(0x46)       /* 打开文件写失败 */
#define VIX_ERROR_BAD_METALIB_FILE                                                                                                                            \
  VIX_ERRCODE(                                                                                                                                                \
      0x47) /* 二进制元数据库文件无效,请确定生成元数据文件的VIX库函数构建版本和读取此文件的VIX库函数构建版本一致 \
             */
#define VIX_ERROR_OPEN_FILE_READ VIX_ERRCODE(0x48)        /* 打开文件读失败 */
#define VIX_ERROR_READ_FILE VIX_ERRCODE(0x49)             /* 读文件失败 */
#define VIX_ERROR_FILE_TOO_LARGE VIX_ERRCODE(0x4A)        /* 文件太大 */
#define VIX_ERROR_BAD_XML VIX_ERRCODE(0x4B)               /* XML格式不正确 */
#define VIX_ERROR_XML_TAG_UNKNOWN VIX_ERRCODE(0x4C)       /* 不能识别的XML标签 */
#define VIX_ERROR_XML_ATTR_MISSING VIX_ERRCODE(0x4D)      /* 缺少必需的XML属性 */
#define VIX_ERROR_XML_TAGSET_VERSION VIX_ERRCODE(0x4E)    /* 不支持的XML标签集版本 */
#define VIX_ERROR_LIB_NAME_MISMATCH VIX_ERRCODE(0x4F)     /* 元数据库名字不一致 */
#define VIX_ERROR_LIB_VERSION_MISMATCH VIX_ERRCODE(0x50)  /* 元数据库版本不一致 */
#define VIX_ERROR_META_VERSION_MISMATCH VIX_ERRCODE(0x51) /* 元数据版本不一致 */
#define VIX_ERROR_INCOMPATIBLE_META VIX_ERRCODE(0x52)     /* 元数据不兼容 */
#define VIX_ERROR_INCOMPATIBLE_LIB VIX_ERRCODE(0x53)      /* 元数据库不兼容 */
#define VIX_ERROR_LIB_NOT_FOUND VIX_ERRCODE(0x54)         /* 没有找到元数据库 */
#define VIX_ERROR_SHM_FAILED VIX_ERRCODE(0x55)            /* 共享内存操作失败 */
#define VIX_ERROR_LOCK_FAILED VIX_ERRCODE(0x56)           /* 加锁失败 */
#define VIX_ERROR_THREAD_KEY VIX_ERRCODE(0x57)            /* 创建线程私有数据失败 */
#define VIX_ERROR_NOT_SUPPORTED VIX_ERRCODE(0x58)         /* 不支持此操作 */
#define VIX_ERROR_BUILD_VERSION \
  VIX_ERRCODE(                  \
      0x59) /* 生成元数据库文件的vix工具的核心数据构建版本和vix库的核心数据构构建版本不一致 */
#define VIX_ERROR_DIGEST_MISMATCH VIX_ERRCODE(0x5A) /* 元数据库的散列值和期望的散列值不一致 */
#define VIX_ERROR_BAD_DIGEST_TEXT VIX_ERRCODE(0x5B)     /* 散列值文本格式不正确 */
#define VIX_ERROR_BAD_MACRO_EXPR VIX_ERRCODE(0x5C)      /* 宏表达式格式不正确 */
#define VIX_ERROR_MACRO_EXPR_DIV_ZERO VIX_ERRCODE(0x5D) /* 宏表达式中除数为零 */
#define VIX_ERROR_MACRO_EXPR_TOO_LONG VIX_ERRCODE(0x5E) /* 宏表达式太长 */
#define VIX_ERROR_MACRO_EXPR_OVERFLOW VIX_ERRCODE(0x5F) /* 宏表达式计算溢出 */
#define VIX_ERROR_VALUE_OUT_OF_RANGE VIX_ERRCODE(0x60) /* 成员取值已经超出此类型的值域范围 */
#define VIX_ERROR_BAD_STRING_VALUE VIX_ERRCODE(0x61)  /* 字符串取值无效 */
#define VIX_ERROR_BAD_WSTRING_VALUE VIX_ERRCODE(0x62) /* 宽字符串取值无效 */
#define VIX_ERROR_BAD_FLOAT_VALUE VIX_ERRCODE(0x63)   /* 浮点数取值无效 */
#define VIX_ERROR_BAD_MONEY_VALUE VIX_ERRCODE(0x64)   /* 货币取值无效 */
#define VIX_ERROR_BAD_TYPE_NAME VIX_ERRCODE(0x65)     /* 基本数据类型名字无效 */
#define VIX_ERROR_BAD_PREFIX VIX_ERRCODE(0x66)        /* 前缀无效 */
#define VIX_ERROR_PREFIX_TOO_LONG VIX_ERRCODE(0x67)   /* 前缀太长，最多31个字符 */
#define VIX_ERROR_INVALID_PARAM \
  VIX_ERRCODE(0x68) /* 参数无效，请检查每个参数是否满足接口的前置条件约束 */
#define VIX_ERROR_ENTRY_INDEX_OUT VIX_ERRCODE(0x69) /* 成员索引超出范围 */
#define VIX_ERROR_META_INDEX_OUT VIX_ERRCODE(0x6A)  /* 元数据索引超出范围 */
#define VIX_ERROR_MACRO_INDEX_OUT VIX_ERRCODE(0x6B) /* 宏定义索引超出范围 */
#define VIX_ERROR_GROUP_INDEX_OUT VIX_ERRCODE(0x6C) /* 宏定义组索引超出范围 */
#define VIX_ERROR_GROUP_FULL VIX_ERRCODE(0x6D)      /* 宏定义组已满 */
#define VIX_ERROR_PLATFORM                                                                                                                  \
  VIX_ERRCODE(                                                                                                                              \
      0x6E) /* 生成元数据库文件的系统平台与生成vix库的系统平台不一致，请注意32位平台与64位平台的区别 \
             */
#define VIX_ERROR_OFFSET_NOT_FOUND VIX_ERRCODE(0x6F) /* 指定的偏移处没有成员 */
#define VIX_ERROR_PATH_TOO_LONG VIX_ERRCODE(0x70)    /* 成员路径太长 */
#define VIX_ERROR_ARRAY_INDEX_OUT VIX_ERRCODE(0x71)  /* 数组下标超出范围 */
#define VIX_ERROR_PATH_NOT_ARRAY VIX_ERRCODE(0x72)   /* 成员不是数组，不能使用下标 */
#define VIX_ERROR_ENTRY_NOT_COMPOSITE VIX_ERRCODE(0x73) /* 成员不是复合类型 */
#define VIX_ERROR_VARIABLE_ARRAY_NOT_LAST \
  VIX_ERRCODE(0x74) /* 可变长数组必须是结构体的最后一个成员 */
#define VIX_ERROR_UNION_NO_BRANCH VIX_ERRCODE(0x75)    /* 联合体没有定义任何分支 */
#define VIX_ERROR_EMPTY_META VIX_ERRCODE(0x76)         /* 元数据没有定义任何成员 */
#define VIX_ERROR_META_SIZE_OVERFLOW VIX_ERRCODE(0x77) /* 元数据的存储空间大小溢出 */
#define VIX_ERROR_BUF_TOO_SHORT VIX_ERRCODE(0x78) /* 输入缓冲区的长度太小，未包括完整的metalib */
#define VIX_ERROR_BAD_HOST_BUFF VIX_ERRCODE(0x79)       /* 本地数据缓冲区无效 */
#define VIX_ERROR_BAD_NET_BUFF VIX_ERRCODE(0x7A)        /* 网络数据缓冲区无效 */
#define VIX_ERROR_HOST_BUFF_TOO_SMALL VIX_ERRCODE(0x7B) /* 本地数据缓冲区空间不够 */
#define VIX_ERROR_NET_BUFF_TOO_SMALL VIX_ERRCODE(0x7C)  /* 网络数据缓冲区空间不够 */
#define VIX_ERROR_BAD_SORT_KEY VIX_ERRCODE(0x7D)        /* 排序关键字无效 */
#define VIX_ERROR_BAD_IO_RULE VIX_ERRCODE(0x7E)         /* 输入输出规则无效 */
#define VIX_ERROR_BAD_VERSION_INDICATOR_DEF VIX_ERRCODE(0x7F) /* 版本指示器定义无效 */
#define VIX_ERROR_BAD_CUSTOM_ATTR VIX_ERRCODE(0x80)           /* 自定义属性无效 */
#define VIX_ERROR_DEPEND_META_NOT_FOUND VIX_ERRCODE(0x81)     /* 依赖的元数据没有找到 */
#define VIX_ERROR_TOO_MANY_ENTRIES VIX_ERRCODE(0x82)          /* 成员个数太多 */
#define VIX_ERROR_TOO_MANY_INDEXES VIX_ERRCODE(0x83)          /* 索引个数太多 */
#define VIX_ERROR_TOO_MANY_COLUMNS VIX_ERRCODE(0x84)          /* 索引列太多 */
#define VIX_ERROR_BAD_DB_FLAG VIX_ERRCODE(0x85)               /* 数据库属性无效 */
#define VIX_ERROR_CHINESE_NAME_TOO_LONG VIX_ERRCODE(0x86)     /* 中文名字太长 */
#define VIX_ERROR_DESC_TOO_LONG VIX_ERRCODE(0x87)             /* 描述太长 */
#define VIX_ERROR_FILE_NOT_METALIB VIX_ERRCODE(0x88)          /* 文件不是元数据库文件 */
#define VIX_ERROR_SEEK_FILE VIX_ERRCODE(0x89)                 /* 文件定位失败 */
#define VIX_ERROR_INTERNAL VIX_ERRCODE(0x8A)                  /* 内部错误 */

#ifdef __cplusplus
extern "C" {
#endif

/* Stores the process-wide last error. */
void vix_set_last_error(int iErrorCode);

/* The process-wide last error (0 until a lookup stores one). */
int vix_get_last_error(void);

/* The failure code of message index iIndex: 0x82010400 + iIndex. */
int vix_error_code(int iIndex);

/* The message of a code: "没有错误" (no error) for any code >= 0, "未知错误" (unknown error)
 * when the low 16 bits minus 1024 fall outside 0..138, else the table's message. GBK text,
 * never null, static. */
const char* vix_error_string(int iErrorCode);

/* Gives the calling thread an error-detail buffer of its own (the key is made once per
 * process). 0 on success or when the thread already has one, -2 when the thread key cannot be
 * made, -1 when the buffer cannot be allocated. */
VIX_WUR int vix_init_for_thread(void);

/* Releases the calling thread's buffer; afterwards the thread uses the process-wide one. */
void vix_fini_for_thread(void);

/* The current detail text, or "no detail error" when it is empty. */
const char* vix_get_error_detail(void);

/* The detail size the runtime reports: 2048 (the buffers hold VIX_ERROR_DETAIL_BUFF bytes). */
int vix_max_error_detail(void);

#ifdef __cplusplus
}
#endif

#endif /* VIX_VIX_ERROR_H */
