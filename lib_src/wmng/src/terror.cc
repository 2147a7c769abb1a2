// The error stack: a fixed array of frames per set, the default set in static storage.
#include "wmng/terror.h"

#include <stdlib.h>
#include <string.h>

namespace {

TErrorFrame g_default_frames[TERROR_DEFAULT_SIZE];
TErrorSet g_default_set;

// The format of one dumped line; the name widths come from the longest names held.
const char kLineFormat[] = "%% %ds:%%-4d %% %ds -> (%%d) (%%s)\n";

TErrorSet* resolve_i(TErrorSet* set) { return set != nullptr ? set : terror_get(); }

// A set that can hold frames: has storage and a sane count.
bool usable_i(const TErrorSet* set) {
  return set != nullptr && set->pstFrame != nullptr && set->iSize > 0 && set->iCount >= 0 &&
         set->iCount <= set->iSize;
}

void reset_i(TErrorSet* set) {
  set->iCount = 0;
  set->iCurrent = -1;
  set->iTerator = -1;
  set->iMaxFile = 0;
  set->iMaxFunc = 0;
}

int name_len_i(const char* name) {
  size_t len = strnlen(name, 4096);
  return static_cast<int>(len);
}

void line_format_i(const TErrorSet* set, char* fmt, size_t size) {
  snprintf(fmt, size, kLineFormat, set->iMaxFile, set->iMaxFunc);
}

// Writes the frames of set to fp in the given direction; the cursor is left as it was.
int dump_i(TErrorSet* set, FILE* fp, bool newest_first) {
  if (!usable_i(set)) return -2;
  if (fp == nullptr) fp = stderr;
  char fmt[64];
  line_format_i(set, fmt, sizeof(fmt));
  const int saved = set->iTerator;
  int written = 0;
  const TErrorFrame* f = newest_first ? terror_begin(set) : terror_rbegin(set);
  for (; f != nullptr; f = newest_first ? terror_next(set) : terror_rnext(set)) {
    fprintf(fp, fmt, f->pszFile, f->iLine, f->pszFunc, f->iErrNo, f->szErrStr);
    ++written;
  }
  set->iTerator = saved;
  return written;
}

}  // namespace

extern "C" {

TErrorSet* terror_init(int iSize) {
  if (iSize < 1) return nullptr;
  TErrorSet* set = static_cast<TErrorSet*>(calloc(1, sizeof(TErrorSet)));
  if (set == nullptr) return nullptr;
  set->pstFrame =
      static_cast<TErrorFrame*>(calloc(static_cast<size_t>(iSize), sizeof(TErrorFrame)));
  if (set->pstFrame == nullptr) {
    free(set);
    return nullptr;
  }
  set->iSize = iSize;
  reset_i(set);
  return set;
}

TErrorSet* terror_get(void) {
  if (g_default_set.pstFrame == nullptr) {
    g_default_set.pstFrame = g_default_frames;
    g_default_set.iSize = TERROR_DEFAULT_SIZE;
    reset_i(&g_default_set);
  }
  return &g_default_set;
}

int terror_vpush_func(TErrorSet* pstSet, const char* pszFile, int iLine, const char* pszFunc,
                      int iErrNo, const char* pszFormat, va_list ap) {
  TErrorSet* set = resolve_i(pstSet);
  if (!usable_i(set) || set->iCount >= set->iSize) return -iErrNo;
  TErrorFrame* f = &set->pstFrame[set->iCount];
  f->pszFile = pszFile != nullptr ? pszFile : "";
  f->iLine = iLine;
  f->pszFunc = pszFunc != nullptr ? pszFunc : "";
  f->iErrNo = iErrNo;
  f->szErrStr[0] = '\0';
  // The buffer keeps one spare byte: messages are cut to 255 characters.
  if (pszFormat != nullptr) vsnprintf(f->szErrStr, TERROR_MSG_LEN - 1, pszFormat, ap);
  const int file_len = name_len_i(f->pszFile);
  const int func_len = name_len_i(f->pszFunc);
  if (file_len > set->iMaxFile) set->iMaxFile = file_len;
  if (func_len > set->iMaxFunc) set->iMaxFunc = func_len;
  set->iCurrent = set->iCount;
  ++set->iCount;
  return -iErrNo;
}

int terror_push_func(TErrorSet* pstSet, const char* pszFile, int iLine, const char* pszFunc,
                     int iErrNo, const char* pszFormat, ...) {
  va_list ap;
  va_start(ap, pszFormat);
  const int ret = terror_vpush_func(pstSet, pszFile, iLine, pszFunc, iErrNo, pszFormat, ap);
  va_end(ap);
  return ret;
}

int terror_pop(TErrorSet* pstSet) {
  TErrorSet* set = resolve_i(pstSet);
  if (!usable_i(set) || set->iCount == 0) return -1;
  --set->iCount;
  set->iCurrent = set->iCount - 1;
  return 0;
}

const TErrorFrame* terror_top(TErrorSet* pstSet) {
  TErrorSet* set = resolve_i(pstSet);
  if (!usable_i(set) || set->iCount == 0) return nullptr;
  return &set->pstFrame[set->iCount - 1];
}

int terror_count(TErrorSet* pstSet) {
  TErrorSet* set = resolve_i(pstSet);
  return usable_i(set) ? set->iCount : 0;
}

void terror_clear(TErrorSet* pstSet) {
  TErrorSet* set = resolve_i(pstSet);
  if (set != nullptr) reset_i(set);
}

void terror_destroy(TErrorSet** ppstSet) {
  TErrorSet* set = ppstSet != nullptr ? *ppstSet : nullptr;
  if (set == nullptr || set == &g_default_set) {
    terror_clear(nullptr);
  } else {
    free(set->pstFrame);
    free(set);
  }
  if (ppstSet != nullptr) *ppstSet = nullptr;
}

const TErrorFrame* terror_begin(TErrorSet* pstSet) {
  TErrorSet* set = resolve_i(pstSet);
  if (!usable_i(set)) return nullptr;
  set->iTerator = set->iCount - 1;
  return set->iTerator >= 0 ? &set->pstFrame[set->iTerator] : nullptr;
}

const TErrorFrame* terror_next(TErrorSet* pstSet) {
  TErrorSet* set = resolve_i(pstSet);
  if (!usable_i(set) || set->iTerator <= 0 || set->iTerator > set->iCount) return nullptr;
  --set->iTerator;
  return &set->pstFrame[set->iTerator];
}

const TErrorFrame* terror_end(TErrorSet* pstSet) {
  (void)pstSet;
  return nullptr;
}

const TErrorFrame* terror_rbegin(TErrorSet* pstSet) {
  TErrorSet* set = resolve_i(pstSet);
  if (!usable_i(set)) return nullptr;
  set->iTerator = 0;
  return set->iCount > 0 ? &set->pstFrame[0] : nullptr;
}

const TErrorFrame* terror_rnext(TErrorSet* pstSet) {
  TErrorSet* set = resolve_i(pstSet);
  if (!usable_i(set) || set->iTerator < 0 || set->iTerator + 1 >= set->iCount) return nullptr;
  ++set->iTerator;
  return &set->pstFrame[set->iTerator];
}

const TErrorFrame* terror_rend(TErrorSet* pstSet) {
  (void)pstSet;
  return nullptr;
}

int terror_dump(TErrorSet* pstSet, FILE* fp) { return dump_i(resolve_i(pstSet), fp, true); }

int terror_rdump(TErrorSet* pstSet, FILE* fp) { return dump_i(resolve_i(pstSet), fp, false); }

int terror_dump_string(TErrorSet* pstSet, char* pszBuf, int iSize) {
  if (pszBuf == nullptr || iSize < 1) return -1;
  pszBuf[0] = '\0';
  TErrorSet* set = resolve_i(pstSet);
  if (!usable_i(set)) return -2;
  char fmt[64];
  line_format_i(set, fmt, sizeof(fmt));
  const int saved = set->iTerator;
  int used = 0;
  int ret = 0;
  for (const TErrorFrame* f = terror_begin(set); f != terror_end(set); f = terror_next(set)) {
    const size_t room = static_cast<size_t>(iSize - used);
    const int n = snprintf(pszBuf + used, room, fmt, f->pszFile, f->iLine, f->pszFunc, f->iErrNo,
                           f->szErrStr);
    if (n < 0 || static_cast<size_t>(n) >= room) {
      pszBuf[used] = '\0';  // keep only the whole lines that fit
      ret = -3;
      break;
    }
    used += n;
  }
  set->iTerator = saved;
  return ret != 0 ? ret : used;
}

}  // extern "C"
