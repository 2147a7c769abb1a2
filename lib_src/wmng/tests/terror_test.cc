// The error stack: pushes, the default set's capacity, iteration and the dump formats.
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <string>

#include <gtest/gtest.h>

#include "wmng/terror.h"

namespace {

// Two frames whose names differ in length, pushed oldest first.
const char kNewestLine[] = "long_name.cc:12345 function -> (2) (y)\n";
const char kOldestLine[] = "        a.cc:7           f -> (1) (x)\n";

TErrorSet* two_frames() {
  TErrorSet* set = terror_init(4);
  EXPECT_EQ(terror_push_func(set, "a.cc", 7, "f", 1, "%s", "x"), -1);
  EXPECT_EQ(terror_push_func(set, "long_name.cc", 12345, "function", 2, "y"), -2);
  return set;
}

std::string dump_to_string(int (*dump)(TErrorSet*, FILE*), TErrorSet* set) {
  char* text = nullptr;
  size_t len = 0;
  FILE* fp = open_memstream(&text, &len);
  EXPECT_NE(fp, nullptr);
  if (fp == nullptr) return "";
  dump(set, fp);
  fclose(fp);
  const std::string out(text, len);
  free(text);
  return out;
}

TEST(Terror, PushPopTopAndTheDefaultSetsCapacity) {
  terror_clear(nullptr);
  EXPECT_EQ(TERROR_PUSH(nullptr, 3, "code %d", 3), -3);
  const TErrorFrame* top = terror_top(nullptr);
  ASSERT_NE(top, nullptr);
  EXPECT_STREQ(top->szErrStr, "code 3");
  EXPECT_STREQ(top->pszFunc, "TestBody");
  EXPECT_STREQ(top->pszFile, "terror_test.cc");
  EXPECT_EQ(terror_pop(nullptr), 0);
  EXPECT_EQ(terror_pop(nullptr), -1);
  EXPECT_EQ(terror_top(nullptr), nullptr);
  // Twenty frames fit; the 21st is dropped but its push still returns the negative code.
  for (int i = 1; i <= 20; ++i)
    EXPECT_EQ(terror_push_func(nullptr, nullptr, i, nullptr, i, "m"), -i);
  EXPECT_EQ(terror_push_func(nullptr, "f", 21, "g", 21, "dropped"), -21);
  EXPECT_EQ(terror_count(nullptr), 20);
  EXPECT_EQ(terror_top(nullptr)->iErrNo, 20);
  EXPECT_STREQ(terror_top(nullptr)->pszFile, "");  // null names are stored as ""
  terror_clear(nullptr);
  EXPECT_EQ(terror_count(nullptr), 0);
  // Messages are cut to 255 characters.
  const std::string longer(300, 'z');
  terror_push_func(nullptr, "f", 1, "g", 1, "%s", longer.c_str());
  EXPECT_EQ(std::string(terror_top(nullptr)->szErrStr), longer.substr(0, 255));
  terror_clear(nullptr);
}

TEST(Terror, IterationDumpFormatsAndRefusals) {
  TErrorSet* set = two_frames();
  std::string order;
  for (const TErrorFrame* f = terror_begin(set); f != terror_end(set); f = terror_next(set)) {
    order += f->szErrStr;
  }
  order += "|";
  for (const TErrorFrame* f = terror_rbegin(set); f != terror_rend(set); f = terror_rnext(set)) {
    order += f->szErrStr;
  }
  EXPECT_EQ(order, "yx|xy");
  EXPECT_EQ(dump_to_string(terror_dump, set), std::string(kNewestLine) + kOldestLine);
  EXPECT_EQ(dump_to_string(terror_rdump, set), std::string(kOldestLine) + kNewestLine);
  // dump_string writes the newest-first text and leaves the cursor where it was.
  ASSERT_NE(terror_begin(set), nullptr);
  char buf[256];
  const int len = terror_dump_string(set, buf, sizeof(buf));
  EXPECT_EQ(std::string(buf), std::string(kNewestLine) + kOldestLine);
  EXPECT_EQ(len, static_cast<int>(strlen(buf)));
  const TErrorFrame* next = terror_next(set);
  ASSERT_NE(next, nullptr);
  EXPECT_STREQ(next->szErrStr, "x");
  // Refusals: no buffer, no room, no frame storage; a short buffer takes whole lines only.
  EXPECT_EQ(terror_dump_string(set, nullptr, 64), -1);
  EXPECT_EQ(terror_dump_string(set, buf, 0), -1);
  TErrorSet empty{};  // no frame storage
  EXPECT_EQ(terror_dump_string(&empty, buf, sizeof(buf)), -2);
  EXPECT_EQ(terror_dump_string(set, buf, sizeof(kNewestLine) + 3), -3);
  EXPECT_STREQ(buf, kNewestLine);  // only whole lines
  terror_destroy(&set);
  EXPECT_EQ(set, nullptr);
  EXPECT_EQ(terror_init(0), nullptr);
}

}  // namespace
