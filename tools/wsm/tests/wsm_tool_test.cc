// The wsm tool run against a live registry of the test's own: its output, exit status and the
// refusals of hostile input.
#include <stdio.h>
#include <sys/ipc.h>
#include <sys/shm.h>
#include <sys/wait.h>
#include <unistd.h>

#include <string>

#include <gtest/gtest.h>

#include "wmng/wsm_vix.h"
#include "wmng_test_util.h"

namespace {

using namespace wmng_test;

// Runs the tool with args (shell words); stdout and stderr together, and the exit status.
int run(const std::string& args, std::string* out) {
  const std::string cmd = std::string(WSM_TOOL) + " " + args + " 2>&1";
  FILE* p = popen(cmd.c_str(), "r");
  if (p == nullptr) return -1;
  char buf[4096];
  size_t n;
  out->clear();
  while ((n = fread(buf, 1, sizeof(buf), p)) > 0) out->append(buf, n);
  const int status = pclose(p);
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

// A library saved to a temporary file, removed at scope end.
class LibFile {
 public:
  explicit LibFile(const VIXMETALIB* lib) {
    const int fd = mkstemp(path_);
    EXPECT_GE(fd, 0);
    close(fd);
    EXPECT_EQ(vix_save_metalib(const_cast<VIXMETALIB*>(lib), path_), 0);
  }
  ~LibFile() { unlink(path_); }
  LibFile(const LibFile&) = delete;
  LibFile& operator=(const LibFile&) = delete;
  std::string path() const { return path_; }

 private:
  char path_[32] = "/tmp/wsm_tool_test_XXXXXX";
};

TEST(WsmTool, AgainstALiveRegistry) {
  RegistryGuard guard(4, 4);
  Lib v1 = make_lib("mylib", 3);
  Lib changed = make_lib("mylib", 3, true);
  LibFile same_file(v1.get()), changed_file(changed.get());
  {
    Handle h;
    ASSERT_EQ(wsm_vix_load_meta_ex(h, v1.get(), 10, 0), 0);
    ASSERT_EQ(wsm_vix_bind_data(h, "wsm-data://10/prog:1/log/rec"), 0);
    ASSERT_EQ(wsm_vix_bind_meta(h, "wsm-meta://10/mylib:3:11/LogRecord"), 0);
    const char record[40] = {7, 0, 0, 0, 'a', 'l', 'p', 'h', 'a', 0, 0,   0,   0,   0,
                             0, 0, 0, 0, 0,   0,   9,   0,   0,   0, 'b', 'e', 't', 'a'};
    ASSERT_EQ(wsm_vix_load_data(h, record, 20), 0);
    ASSERT_EQ(wsm_vix_bind_data(h, "wsm-data://10/prog:1/log/raw"), 0);
    ASSERT_EQ(wsm_vix_bind_size(h, 16), 0);
    ASSERT_NE(wsm_vix_ptr(h, WSM_VIX_CREAT), nullptr);
  }
  // A segment at a key of its own that is not a registry.
  const int foreign_key = guard.key() ^ 0x8;
  const int foreign = shmget(foreign_key, 4096, IPC_CREAT | IPC_EXCL | 0600);
  ASSERT_GE(foreign, 0);
  guard.track(foreign);
  const std::string key = "--key " + std::to_string(guard.key()) + " ";
  struct Case {
    std::string args;
    int status;
    std::vector<std::string> expect;  // pieces of the output, in order
  } cases[] = {
      {"--help", 0, {"usage: wsm [--key KEY] COMMAND"}},
      {key + "list",
       0,
       {"KIND", "meta", "wsm-meta://10/mylib:3:11/:*/", "data", "20", "0",
        "wsm-data://10/prog:1/log/rec  (type wsm-meta://10/mylib:3:11/LogRecord:*/)",
        "wsm-data://10/prog:1/log/raw\n"}},
      {key + "show wsm-data://10/prog:1/log/rec",
       0,
       {"kind:       data", "references: slot 1, header 1", "type:       wsm-meta",
        "record:     LogRecord, 20 bytes each, 1 in the object",
        "[0] [LogRecord version=\"0\"]:\n  iId=7\n  szName=alpha\n"}},
      {key + "show wsm-meta://10/mylib", 0, {"kind:       meta", "LogRecord: 20 bytes, 2 members"}},
      {key + "show 'wsm-data://10/prog/x:y'",
       2,
       {"wsm: bad URI", "error stack", "(Uri 格式错误: 分隔错误)"}},
      {key + "show wsm-data://99", 2, {"no object matches"}},
      {key + "unlink wsm-data://10", 2, {"matches 2 objects"}},
      {key + "unlink wsm-data://10/prog:1/log/raw", 0, {"removed wsm-data://10/prog:1/log/raw"}},
      {key + "list", 0, {"wsm-data://10/prog:1/log/rec  (type"}},
      {key + "load-meta /nonexistent/lib.bin", 2, {"cannot read the library file"}},
      {key + "load-meta --bid 10 " + same_file.path(), 0, {"unchanged as wsm-meta://10/mylib"}},
      {key + "load-meta --bid 10 " + changed_file.path(), 1, {"kept (use --replace)"}},
      {key + "load-meta --bid 10 --replace " + changed_file.path(), 0, {"replaced"}},
      {"--key " + std::to_string(guard.key() ^ 0x4) + " list", 2, {"no registry at key"}},
      {"--key " + std::to_string(foreign_key) + " list", 2, {"is not a registry", "error stack"}},
      {"--key zz list", 2, {"bad --key value 'zz'"}},
      {key + "frobnicate", 2, {"unknown command 'frobnicate'"}},
      {key + "show", 2, {"show takes 1 argument(s)"}},
  };
  for (const Case& c : cases) {
    std::string out;
    EXPECT_EQ(run(c.args, &out), c.status) << c.args << "\n" << out;
    size_t at = 0;
    for (const std::string& piece : c.expect) {
      const size_t found = out.find(piece, at);
      EXPECT_NE(found, std::string::npos) << c.args << ": '" << piece << "' in\n" << out;
      if (found != std::string::npos) at = found + piece.size();
    }
  }
  // The registry and the stored objects are as the tool left them.
  Handle h;
  EXPECT_EQ(wsm_vix_query(h, "wsm-data://"), 1);
  ASSERT_EQ(wsm_vix_query(h, "wsm-meta://10/mylib"), 1);
  EXPECT_EQ(wsm_vix_row_size(wsm_vix_row_only(h)), static_cast<int64_t>(changed->iSize));
}

}  // namespace
