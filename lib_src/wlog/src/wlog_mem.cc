// Memory appender: the newest records in a ring inside a shared-memory segment, written by one
// process and readable by others (also after the writer crashed).
//
// The byte total of the head counts every frame written, fillers included, so it is the stream
// position of the write position (write position = byte total modulo capacity): readers walk
// the ring in stream positions, which do not repeat from one round of the ring to the next.
//
// The writer keeps two positions in the ring head: the oldest frame and the next write. The
// ring is empty exactly when they are equal; a frame that would make them equal on a full ring
// pushes the oldest position one frame further. Positions and counters in the head are stored
// with release order and read with acquire order, so a reader that loads the write position
// first finds complete frames before it.

#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>

#include "wlog/wlog.h"
#include "wmng/terror.h"
#include "wmng/wsm_vix.h"

namespace {

constexpr uint64_t kOverhead = WLOGMEM_FRAME_OVERHEAD;

inline uint64_t load(const uint64_t* p) { return __atomic_load_n(p, __ATOMIC_ACQUIRE); }
inline void store(uint64_t* p, uint64_t v) { __atomic_store_n(p, v, __ATOMIC_RELEASE); }

inline char* data_of(WLOGMEMHEAD* head) {
  return reinterpret_cast<char*>(head) + WLOGMEM_HEAD_SIZE;
}
inline const char* data_of(const WLOGMEMHEAD* head) {
  return reinterpret_cast<const char*>(head) + WLOGMEM_HEAD_SIZE;
}

inline uint64_t get_u64(const char* p) {
  uint64_t v;
  memcpy(&v, p, sizeof(v));
  return v;
}
inline uint32_t get_u32(const char* p) {
  uint32_t v;
  memcpy(&v, p, sizeof(v));
  return v;
}
inline void put_u64(char* p, uint64_t v) { memcpy(p, &v, sizeof(v)); }
inline void put_u32(char* p, uint32_t v) { memcpy(p, &v, sizeof(v)); }

// Copies a name into a frame's 256-byte field, always terminated; the rest of the field is left
// as it is (readers stop at the terminator).
void put_name(char* dst, const char* src) {
  if (src == nullptr) src = "";
  const size_t n = strnlen(src, WLOGMEM_FRAME_NAME_LEN - 1);
  memcpy(dst, src, n);
  dst[n] = '\0';
}

WLOGMEMHEAD* ready_head(WLOGMEM* m) {
  WLOGMEMHEAD* head = m != nullptr ? static_cast<WLOGMEMHEAD*>(m->pvMemHead) : nullptr;
  if (head == nullptr || __atomic_load_n(&head->dwReady, __ATOMIC_ACQUIRE) != 1 ||
      head->dwMagic != WLOGMEM_MAGIC) {
    return nullptr;
  }
  return head;
}

// Moves the oldest position past every frame that the region [w, end) overwrites or that would
// start where the region ends (it would look like an empty ring). end <= cap; end == cap
// stands for position 0.
void push_oldest(WLOGMEMHEAD* head, uint64_t w, uint64_t end) {
  const uint64_t cap = head->ullCap;
  const char* data = data_of(head);
  uint64_t o = head->ullOldest;
  if (o == w) return;  // empty: the new frame becomes the oldest
  for (uint64_t guard = cap / kOverhead + 2; guard > 0; --guard) {
    const bool overtaken = (o > w && o <= end) || (end == cap && o == 0);
    if (!overtaken || o == w) break;
    const uint64_t len = get_u64(data + o + WLOGMEM_FRAME_OFF_LEN);
    if (len < kOverhead || len > cap - o) {  // damaged: nothing behind it can be trusted
      o = w;
      break;
    }
    o += len;
    if (o == cap) o = 0;
  }
  store(&head->ullOldest, o);
}

// Writes a frame's length fields at position w and moves the positions: the frame is whole
// once the write position is published.
void place_frame(WLOGMEMHEAD* head, uint64_t w, uint64_t len) {
  char* frame = data_of(head) + w;
  put_u64(frame + WLOGMEM_FRAME_OFF_LEN, len);
  put_u64(frame + len - 8, len);
  uint64_t next = w + len;
  if (next == head->ullCap) next = 0;
  store(&head->ullBytes, head->ullBytes + len);
  store(&head->ullWrite, next);
}

// A filler frame over the rest of the ring from w.
void write_filler(WLOGMEMHEAD* head, uint64_t w) {
  const uint64_t len = head->ullCap - w;
  char* frame = data_of(head) + w;
  push_oldest(head, w, head->ullCap);
  memset(frame + WLOGMEM_FRAME_OFF_SEC, 0, WLOGMEM_FRAME_OFF_FILE + 1 - WLOGMEM_FRAME_OFF_SEC);
  frame[WLOGMEM_FRAME_OFF_FUNC] = '\0';
  put_u32(frame + WLOGMEM_FRAME_OFF_KIND, WLOGMEM_KIND_FILLER);
  place_frame(head, w, len);
}

// Frame length of a message of msg bytes at position w: the rest of the ring when fewer than
// kOverhead bytes would remain behind it.
uint64_t frame_len(uint64_t cap, uint64_t w, uint64_t msg) {
  const uint64_t len = msg + kOverhead;
  return cap - w - len < kOverhead ? cap - w : len;
}

// ---- reading ----

struct FrameView {
  uint64_t len, sec, usec;
  uint32_t prio, line, msg_len, kind;
  char file[WLOGMEM_FRAME_NAME_LEN];
  char func[WLOGMEM_FRAME_NAME_LEN];
  const char* msg;
};

// Copies the frame at position pos out of the ring; false when it fails its checks.
bool read_frame(const char* data, uint64_t cap, uint64_t pos, FrameView* f) {
  if (pos >= cap || cap - pos < kOverhead) return false;
  const char* p = data + pos;
  f->len = get_u64(p + WLOGMEM_FRAME_OFF_LEN);
  if (f->len < kOverhead || f->len > cap - pos) return false;
  if (get_u64(p + f->len - 8) != f->len) return false;
  f->msg_len = get_u32(p + WLOGMEM_FRAME_OFF_MSGLEN);
  if (static_cast<uint64_t>(f->msg_len) + kOverhead > f->len) return false;
  f->kind = get_u32(p + WLOGMEM_FRAME_OFF_KIND);
  if (f->kind > WLOGMEM_KIND_FILLER) return false;
  f->sec = get_u64(p + WLOGMEM_FRAME_OFF_SEC);
  f->usec = get_u64(p + WLOGMEM_FRAME_OFF_USEC);
  f->prio = get_u32(p + WLOGMEM_FRAME_OFF_PRIORITY);
  f->line = get_u32(p + WLOGMEM_FRAME_OFF_LINE);
  memcpy(f->file, p + WLOGMEM_FRAME_OFF_FILE, sizeof(f->file));
  f->file[sizeof(f->file) - 1] = '\0';
  memcpy(f->func, p + WLOGMEM_FRAME_OFF_FUNC, sizeof(f->func));
  f->func[sizeof(f->func) - 1] = '\0';
  f->msg = p + WLOGMEM_FRAME_MSG_OFFSET;
  return true;
}

void print_frame(const FrameView& f, FILE* fp, const char* end) {
  struct tm tm_local;
  memset(&tm_local, 0, sizeof(tm_local));
  const time_t t = static_cast<time_t>(f.sec);
  localtime_r(&t, &tm_local);
  fprintf(fp, "[%04d%02d%02d %02d:%02d:%02d%06d]:[%s:%d][%s()][", tm_local.tm_year + 1900,
          tm_local.tm_mon + 1, tm_local.tm_mday, tm_local.tm_hour, tm_local.tm_min, tm_local.tm_sec,
          static_cast<int>(f.usec % 1000000), f.file, static_cast<int>(f.line), f.func);
  if (f.kind == WLOGMEM_KIND_BIN) {
    static const char kHex[] = "0123456789ABCDEF";
    for (uint32_t i = 0; i < f.msg_len; ++i) {
      const unsigned char b = static_cast<unsigned char>(f.msg[i]);
      fputc(kHex[b >> 4], fp);
      fputc(kHex[b & 15], fp);
    }
  } else {
    fwrite(f.msg, 1, strnlen(f.msg, f.msg_len), fp);
  }
  fputc(']', fp);
  fputs(end, fp);
}

WLOG_MUST_CHECK int open_handle(WLOGMEM* m, WsmVixHandleP* h) {
  *h = nullptr;
  if (wsm_vix_open(h) != 0 || *h == nullptr) return -1;
  m->pstWsmHandle = *h;
  return 0;
}

}  // namespace

extern "C" {

int wlogmem_init(WLOGMEM* pstMem, WLOGDEVMEM* pstDev) {
  if (pstMem == nullptr || pstDev == nullptr) return -1;
  memset(pstMem, 0, sizeof(*pstMem));
  pstMem->pstDev = pstDev;
  if (!pstDev->iEnable) return 0;
  WsmVixHandleP h = nullptr;
  if (open_handle(pstMem, &h) != 0) return -1;
  char uri[WLOGMEM_STRING_LEN];
  snprintf(uri, sizeof(uri), "%.*s", static_cast<int>(sizeof(uri) - 1), pstDev->szUri);
  if (wsm_vix_bind_data(h, uri) != 0) return -2;
  if (pstDev->iBuffSize < WLOGMEM_RING_MIN ||
      wsm_vix_bind_size(h, static_cast<uint64_t>(pstDev->iBuffSize)) != 0) {
    return -3;
  }
  WsmObjPtrP ptr = wsm_vix_ptr(h, WSM_VIX_CREAT | WSM_VIX_EXCL);
  bool existed = false;
  if (ptr == nullptr || ptr == WSM_VIX_PTR_ABSENT) {
    ptr = wsm_vix_ptr(h, WSM_VIX_RDONLY);
    if (ptr == nullptr || ptr == WSM_VIX_PTR_ABSENT) return -4;
    existed = true;
    terror_clear(nullptr);  // the refused creation is expected here
  }
  void* ring = wsm_vix_at(ptr, 0);
  if (ring == nullptr) return existed ? -5 : -6;
  pstMem->pvMemHead = ring;
  WLOGMEMHEAD* head = static_cast<WLOGMEMHEAD*>(ring);
  if (existed && head->dwMagic == WLOGMEM_MAGIC) {
    printf("wlog memory ring %s holds records of an earlier writer:\n", uri);
    if (wlogmem_dump(ring, stdout) < 0) printf("(no readable records)\n");
  }
  __atomic_store_n(&head->dwReady, 0U, __ATOMIC_RELEASE);
  memset(ring, 0, WLOGMEM_HEAD_SIZE);
  head->dwMagic = WLOGMEM_MAGIC;
  head->dwVersion = WLOGMEM_VERSION;
  head->ullCap = static_cast<uint64_t>(pstDev->iBuffSize) - WLOGMEM_HEAD_SIZE;
  __atomic_store_n(&head->dwReady, 1U, __ATOMIC_RELEASE);
  return 0;
}

int wlogmem_attach(WLOGMEM* pstMem, WLOGDEVMEM* pstDev) {
  if (pstMem == nullptr || pstDev == nullptr) return -1;
  memset(pstMem, 0, sizeof(*pstMem));
  pstMem->pstDev = pstDev;
  WsmVixHandleP h = nullptr;
  if (open_handle(pstMem, &h) != 0) return -1;
  char uri[WLOGMEM_STRING_LEN];
  snprintf(uri, sizeof(uri), "%.*s", static_cast<int>(sizeof(uri) - 1), pstDev->szUri);
  if (wsm_vix_query(h, uri) != 1) return -2;
  WsmVixRowP row = wsm_vix_row_only(h);
  if (row == nullptr) return -3;
  const int64_t size = wsm_vix_row_size(row);
  if (size < WLOGMEM_RING_MIN || size > INT32_MAX ||
      (pstDev->iBuffSize != 0 && pstDev->iBuffSize != size)) {
    return -4;
  }
  pstDev->iBuffSize = static_cast<int32_t>(size);
  if (wsm_vix_bind_data(h, uri) != 0) return -5;
  if (wsm_vix_bind_size(h, static_cast<uint64_t>(size)) != 0) return -6;
  WsmObjPtrP ptr = wsm_vix_ptr(h, WSM_VIX_RDONLY);
  if (ptr == nullptr || ptr == WSM_VIX_PTR_ABSENT) return -7;
  void* ring = wsm_vix_at(ptr, WSM_VIX_RDONLY);
  if (ring == nullptr) return -7;
  pstMem->pvMemHead = ring;
  pstMem->iReadOnly = 1;
  const WLOGMEMHEAD* head = static_cast<const WLOGMEMHEAD*>(ring);
  if (head->dwMagic != WLOGMEM_MAGIC ||
      head->ullCap != static_cast<uint64_t>(size) - WLOGMEM_HEAD_SIZE) {
    return -8;
  }
  return 0;
}

int wlogmem_fini(WLOGMEM* pstMem) {
  if (pstMem == nullptr) return 0;
  if (pstMem->pvMemHead != nullptr) {
    if (wsm_vix_dt(pstMem->pvMemHead) != 0) {
      // Nothing more to do: the mapping goes with the process at the latest.
    }
    pstMem->pvMemHead = nullptr;
  }
  WsmVixHandleP h = static_cast<WsmVixHandleP>(pstMem->pstWsmHandle);
  if (h != nullptr && wsm_vix_close(&h) != 0) {
    // A handle that cannot be closed cleanly is dropped all the same.
  }
  pstMem->pstWsmHandle = nullptr;
  return 0;
}

int wlogmem_get_slot(WLOGMEM* pstMem, int iSize, char** ppszSlot) {
  WLOGMEMHEAD* head = ready_head(pstMem);
  if (head == nullptr || pstMem->iReadOnly || ppszSlot == nullptr || iSize < 0) return -1;
  const uint64_t cap = head->ullCap;
  const uint64_t need = static_cast<uint64_t>(iSize) + kOverhead;
  if (need > cap) return -1;
  uint64_t w = head->ullWrite;
  if (w > cap || cap - w < need) {
    if (w > cap || cap - w < kOverhead) {
      // The byte total moves on to the next round, so that it stays a multiple of the capacity
      // away from the write position.
      const uint64_t bytes = head->ullBytes;
      store(&head->ullOldest, 0);
      store(&head->ullBytes, bytes + (cap - bytes % cap) % cap);
      store(&head->ullWrite, 0);
      return -1;
    }
    write_filler(head, w);
    w = 0;
  }
  // The slot's whole frame is reserved now, before the caller writes into it: a reader walking
  // from the oldest position never meets a frame header the message has overwritten.
  push_oldest(head, w, w + frame_len(cap, w, static_cast<uint64_t>(iSize)));
  *ppszSlot = data_of(head) + w + WLOGMEM_FRAME_MSG_OFFSET;
  return 0;
}

int wlogmem_make_frame(WLOGMEM* pstMem, const WLOGEVENTBASE* pstEvt) {
  WLOGMEMHEAD* head = ready_head(pstMem);
  if (head == nullptr || pstMem->iReadOnly || pstEvt == nullptr || pstEvt->evt_loc == nullptr ||
      pstEvt->evt_msg_len < 0 || (pstEvt->evt_msg == nullptr && pstEvt->evt_msg_len > 0)) {
    return -1;
  }
  const uint64_t msg_len = static_cast<uint64_t>(pstEvt->evt_msg_len);
  char* data = data_of(head);
  const uint64_t cap = head->ullCap;
  uint64_t w = head->ullWrite;
  const bool in_slot = w <= cap && cap - w >= msg_len + kOverhead &&
                       pstEvt->evt_msg == data + w + WLOGMEM_FRAME_MSG_OFFSET;
  if (!in_slot) {
    char* slot = nullptr;
    int got = -1;
    // A second try follows a reset of a ring whose write position was damaged.
    for (int attempt = 0; attempt < 2 && got != 0; ++attempt) {
      got = wlogmem_get_slot(pstMem, pstEvt->evt_msg_len, &slot);
    }
    if (got != 0) return -1;
    if (msg_len > 0) memmove(slot, pstEvt->evt_msg, msg_len);
    w = head->ullWrite;
  }
  const uint64_t len = frame_len(cap, w, msg_len);
  push_oldest(head, w, w + len);
  char* frame = data + w;
  put_u64(frame + WLOGMEM_FRAME_OFF_SEC, static_cast<uint64_t>(pstEvt->evt_timestamp.tv_sec));
  put_u64(frame + WLOGMEM_FRAME_OFF_USEC, static_cast<uint64_t>(pstEvt->evt_timestamp.tv_usec));
  put_u32(frame + WLOGMEM_FRAME_OFF_PRIORITY, static_cast<uint32_t>(pstEvt->evt_priority));
  put_u32(frame + WLOGMEM_FRAME_OFF_LINE, static_cast<uint32_t>(pstEvt->evt_loc->loc_line));
  put_u32(frame + WLOGMEM_FRAME_OFF_MSGLEN, static_cast<uint32_t>(msg_len));
  put_u32(frame + WLOGMEM_FRAME_OFF_KIND,
          pstEvt->evt_is_msg_binary ? WLOGMEM_KIND_BIN : WLOGMEM_KIND_TEXT);
  put_name(frame + WLOGMEM_FRAME_OFF_FILE, pstEvt->evt_loc->loc_file);
  put_name(frame + WLOGMEM_FRAME_OFF_FUNC, pstEvt->evt_loc->loc_function);
  store(&head->ullFrames, head->ullFrames + 1);
  place_frame(head, w, len);
  return 0;
}

int wlogmem_dump_range(const void* pvRing, uint64_t ullFrom, uint64_t ullTo, FILE* fp,
                       const char* pszRecordEnd, int* piFrames, uint64_t* pullBytes,
                       uint64_t* pullEnd) {
  if (pvRing == nullptr || fp == nullptr || piFrames == nullptr || pullBytes == nullptr) return -1;
  const WLOGMEMHEAD* head = static_cast<const WLOGMEMHEAD*>(pvRing);
  const uint64_t cap = head->ullCap;
  const char* data = data_of(head);
  uint64_t at = ullFrom;  // stream position of the frame to read
  char* copy = nullptr;   // the message, copied out before it is trusted
  size_t copy_cap = 0;
  int ret = -1;
  for (uint64_t guard = cap / kOverhead + 1; cap >= kOverhead && guard > 0; --guard) {
    if (at >= ullTo) {
      ret = at == ullTo ? 0 : -1;
      break;
    }
    if (wlogmem_oldest(pvRing) > at) break;  // overwritten before it was reached
    FrameView f;
    if (!read_frame(data, cap, at % cap, &f)) break;
    if (f.msg_len > copy_cap) {
      char* grown = static_cast<char*>(realloc(copy, f.msg_len));
      if (grown == nullptr) break;
      copy = grown;
      copy_cap = f.msg_len;
    }
    if (f.msg_len > 0) memcpy(copy, f.msg, f.msg_len);
    // A live writer moves the oldest position past a frame before it overwrites any of it, so
    // the copy stands when the oldest position, read after it, has not passed the frame.
    __atomic_thread_fence(__ATOMIC_ACQUIRE);
    if (wlogmem_oldest(pvRing) > at) break;
    if (f.kind != WLOGMEM_KIND_FILLER) {
      f.msg = copy;
      print_frame(f, fp, pszRecordEnd != nullptr ? pszRecordEnd : "");
      ++*piFrames;
      *pullBytes += f.len;
    }
    at += f.len;
  }
  free(copy);
  if (pullEnd != nullptr) *pullEnd = at;
  return ret;
}

uint64_t wlogmem_oldest(const void* pvRing) {
  const WLOGMEMHEAD* head = static_cast<const WLOGMEMHEAD*>(pvRing);
  const uint64_t cap = head->ullCap;
  // The oldest position first, then the byte total: the total is then at least the stream
  // position of the write position the oldest one belongs to, and a writer that went round the
  // ring meanwhile makes the result larger, never smaller, than the truth.
  const uint64_t oldest = load(&head->ullOldest);
  const uint64_t total = load(&head->ullBytes);
  if (cap == 0) return total;
  return total - (total % cap + cap - oldest % cap) % cap;
}

int wlogmem_dump(const void* pvRing, FILE* fp) {
  if (pvRing == nullptr || fp == nullptr) return -1;
  const WLOGMEMHEAD* head = static_cast<const WLOGMEMHEAD*>(pvRing);
  if (head->dwMagic != WLOGMEM_MAGIC) return -1;
  const uint64_t from = wlogmem_oldest(pvRing);
  const uint64_t to = load(&head->ullBytes);
  int frames = 0;
  uint64_t bytes = 0;
  if (wlogmem_dump_range(pvRing, from, to, fp, nullptr, &frames, &bytes, nullptr) != 0) {
    // A frame overwritten before it was read, or a damaged ring: what came before it stands.
  }
  fprintf(fp, "#####TotalPacket(%d) TotalBytes(%d)####\n", frames, static_cast<int>(bytes));
  return frames;
}

int wmemlog_dump_memdev(WLOGDEVMEM* pstDev, FILE* fp) {
  if (pstDev == nullptr || fp == nullptr) return -1;
  WLOGMEM mem;
  int ret = wlogmem_attach(&mem, pstDev);
  if (ret == 0 && wlogmem_dump(mem.pvMemHead, fp) < 0) ret = -8;
  if (ret != 0) {
    fprintf(fp, "wmemlog dump uri(%.*s) failed(%d)\n", static_cast<int>(sizeof(pstDev->szUri) - 1),
            pstDev->szUri, ret);
  }
  (void)wlogmem_fini(&mem);
  return ret;
}

}  // extern "C"
