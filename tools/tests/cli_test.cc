// The tools as a user runs them: each case runs a built program with its arguments and standard
// input and checks the exit status, the message and the stream it went to, and that nothing was
// left behind in $TMPDIR or the working directory.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <tuple>
#include <vector>

extern char** environ;

namespace {

namespace fs = std::filesystem;

struct Result {
  int status = -1;  // exit status, or 128 + signal
  std::string out, err;
  bool clean = false;  // $TMPDIR and the working directory are empty afterwards
};

class Cli : public testing::Test {
 protected:
  static void SetUpTestSuite() {
    char tmpl[] = "/tmp/zq_cli_test_XXXXXX";
    ASSERT_NE(mkdtemp(tmpl), nullptr);
    dir_ = tmpl;
    std::string deep = "user a\n", word(1 << 20, 'x');
    for (int i = 0; i < 60000; ++i) deep += "repeat 1\n";
    deep += "host_tick\n";
    for (int i = 0; i < 60000; ++i) deep += "end\n";
    const std::pair<const char*, std::string> files[] = {
        {"deep.scenario", deep},
        {"huge.scenario", "user a\nrepeat 1000000\nmsg a size:1048576\nend\n"},
        {"long.scenario", "users 1000 u\nrepeat 1000000\ntick *\nend\n"},
        {"wide.scenario", "users 2000 u\ntick * 1000\n"},
        {"slow.scenario", "users 1000 u\nlogin *\nrepeat 90000\ntick *\nend\n"},
        {"binary.scenario", "user a\n\x01\x1b[31mbad\n"},
        {"bigword.scenario", "user a\nmsg a " + word + "x\n"},
        {"heartbeat.hex", "0a 09 00 00 00000001 00000002\n"},
        {"good.logconf",
         "Count=1\n[CategoryList[0]]\n  Name=zq\n  PriorityLow=WLOG_PRIORITY_WARN\n"
         "  [Device]\n    Type=WLOG_DEV_TERM\n    [Device]\n      [Term]\n"
         "        StdType=WLOG_TERM_STDOUT\n"},
        {"bad.logconf", "Count=1\n[CategoryList[0]]\n  Colour=red\n"},
        {"nozq.logconf", "Count=1\n[CategoryList[0]]\n  Name=other\n"},
        {"bad.vix", "schema bad\nstruct\x01X \xff\n"},
        {"corrupt.metalib", "not a metadata library\n"},
        {"term.bin", std::string("\x01\0\0\0", 4)},
    };
    for (const auto& f : files) std::ofstream(dir_ + "/" + f.first) << f.second;
    // Binary log records: (seconds, id, class, body); the last file ends in a cut record.
    std::string bin;
    const std::tuple<uint32_t, uint32_t, uint32_t, std::string> recs[] = {
        {1000, 1500, 7, "first"},
        {2000, 2000, 7, "second"},
        {3000, 1600, 8, std::string("\x01\xff", 2)}};
    for (const auto& r : recs)
      bin += BinRecord(std::get<0>(r), std::get<1>(r), std::get<2>(r), std::get<3>(r));
    std::ofstream(dir_ + "/records.bin", std::ios::binary) << bin;
    std::ofstream(dir_ + "/cut.bin", std::ios::binary) << bin.substr(0, bin.size() - 1);
    fs::create_directories(dir_ + "/dir");
    fs::create_directories(dir_ + "/sdk/libkry_sdk.so");
  }
  static void TearDownTestSuite() { fs::remove_all(dir_); }

  // A binary log record: the 40-byte big-endian head (version 1, magic '7', sequence 1) and body.
  static std::string BinRecord(uint32_t sec, uint32_t id, uint32_t cls, const std::string& body) {
    std::string r = {1, '7', 0, 40};
    for (uint32_t v : {static_cast<uint32_t>(body.size()), sec, 5u, 1u, id, cls, 0u, 0u, 0u}) {
      for (int shift = 24; shift >= 0; shift -= 8) r += static_cast<char>((v >> shift) & 0xff);
    }
    return r + body;
  }

  // Tool names to programs, @D to the fixtures directory.
  static std::string Expand(std::string s) {
    if (s == "sim") return QUELLD_SIM_BIN;
    if (s == "fd") return FRAME_DECODE_BIN;
    if (s == "wx") return WLOG_EXAMPLE_BIN;
    if (s == "vixc") return VIXC_BIN;
    if (s == "wd") return WLOG_DUMP_BIN;
    for (size_t at; (at = s.find("@D")) != std::string::npos;) s.replace(at, 2, dir_);
    return s;
  }

  static std::string Slurp(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::stringstream s;
    s << in.rdbuf();
    return s.str();
  }

  // Starts the program in an empty working directory with an empty $TMPDIR.
  static pid_t Start(const std::vector<std::string>& args, const std::string& input) {
    const std::string run = dir_ + "/run";
    fs::remove_all(run);
    fs::create_directories(run + "/tmp");
    fs::create_directories(run + "/cwd");
    std::ofstream(run + "/in") << input;
    std::vector<std::string> words;
    for (const std::string& a : args) words.push_back(Expand(a));
    std::vector<char*> argv;
    for (std::string& w : words) argv.push_back(&w[0]);
    argv.push_back(nullptr);
    std::vector<std::string> env_text = {"TMPDIR=" + run + "/tmp"};
    for (char** e = environ; *e != nullptr; ++e) {
      if (strncmp(*e, "TMPDIR=", 7) != 0) env_text.push_back(*e);
    }
    std::vector<char*> env;
    for (std::string& e : env_text) env.push_back(&e[0]);
    env.push_back(nullptr);
    posix_spawn_file_actions_t fa;
    posix_spawn_file_actions_init(&fa);
    posix_spawn_file_actions_addopen(&fa, 0, (run + "/in").c_str(), O_RDONLY, 0);
    posix_spawn_file_actions_addopen(&fa, 1, (run + "/out").c_str(), O_WRONLY | O_CREAT, 0600);
    posix_spawn_file_actions_addopen(&fa, 2, (run + "/err").c_str(), O_WRONLY | O_CREAT, 0600);
    posix_spawn_file_actions_addchdir_np(&fa, (run + "/cwd").c_str());
    pid_t pid = -1;
    EXPECT_EQ(posix_spawn(&pid, argv[0], &fa, nullptr, argv.data(), env.data()), 0) << argv[0];
    posix_spawn_file_actions_destroy(&fa);
    return pid;
  }

  // Waits for the program; one that hangs is killed after two minutes and fails the case.
  static Result Finish(pid_t pid) {
    Result r;
    int ws = 0;
    pid_t done = 0;
    for (int i = 0; i < 120000 && done == 0; ++i) {
      done = waitpid(pid, &ws, WNOHANG);
      if (done == 0) usleep(1000);
    }
    if (done == 0) {
      kill(pid, SIGKILL);
      done = waitpid(pid, &ws, 0);
      ADD_FAILURE() << "still running after two minutes: killed";
    }
    EXPECT_EQ(done, pid);
    r.status = WIFEXITED(ws) ? WEXITSTATUS(ws) : 128 + WTERMSIG(ws);
    const std::string run = dir_ + "/run";
    r.out = Slurp(run + "/out");
    r.err = Slurp(run + "/err");
    r.clean = fs::is_empty(run + "/tmp") && fs::is_empty(run + "/cwd");
    return r;
  }

  static std::string dir_;
};

std::string Cli::dir_;

struct Case {
  std::vector<std::string> args;  // args[0] is the tool: sim, fd, wx or vixc; @D the fixtures
  std::string input;              // standard input
  int status;
  bool on_stdout;  // the message is on standard output (else standard error)
  std::string says;
};

// One row per user-visible behaviour: arguments, standard input, exit status, whether the message
// is on standard output (else standard error), and the message.
// clang-format off
const Case kCases[] = {
    // Scenarios that crashed, hung or asked for unbounded memory are refused up front.
    {{"sim", "--scenario", "@D/deep.scenario"}, "", 2, false,
     "quelld_sim: error: scenario @D/deep.scenario, line 66: repeat blocks nested more than 64 deep"},
    {{"sim", "--scenario", "@D/huge.scenario"}, "", 2, false,
     "line 3: by this line the scenario relays 1048576000000 bytes of message data, more than the "
     "limit of 1073741824 (this line: repeated 1000000 x TIMES 1 x users 1 = 1000000 events of "
     "1048576 bytes)"},
    {{"sim", "--scenario", "@D/long.scenario"}, "", 2, false,
     "line 3: by this line the scenario plays 1000000000 events, more than the limit of 100000000"},
    {{"sim", "--scenario", "@D/wide.scenario"}, "", 2, false,
     "line 2: TIMES 1000 x users 2000 = 2000000 events from one command, more than the limit of "
     "1048576"},
    {{"sim", "--users", "100000", "--rounds", "100000"}, "", 2, false,
     "scenario (built-in), line 100009: by this line the scenario plays 10000300002 events"},
    {{"sim", "--scenario", "@D/bigword.scenario"}, "", 2, false,
     "line 2: DATA longer than 1048576 bytes"},
    {{"sim", "--scenario", "@D/binary.scenario"}, "", 2, false,
     "line 2: unknown command '\\x01\\x1B[31mbad'"},
    // File arguments must be readable regular files; - is standard input.
    {{"sim", "--scenario", "@D/dir"}, "", 2, false,
     "quelld_sim: error: cannot read scenario file @D/dir: is a directory, not a file"},
    {{"sim", "--config", "@D/dir"}, "", 2, false,
     "quelld_sim: error: cannot read configuration file @D/dir: is a directory, not a file"},
    {{"sim", "--scenario", "@D/none"}, "", 2, false, "@D/none: No such file or directory"},
    {{"sim", "--sdk-dir", "@D/sdk"}, "", 2, false,
     "quelld_sim: error: SDK library @D/sdk/libkry_sdk.so: is a directory, not a file"},
    {{"sim", "--plugin", "@D/dir"}, "", 2, false, "plug-in @D/dir: is a directory, not a file"},
    {{"sim", "--json", "@D/dir"}, "", 2, false, "JSON summary @D/dir: is a directory, not a file"},
    {{"sim", "--log-file", "@D/heartbeat.hex/sim.log"}, "", 2, false,
     "quelld_sim: error: logging could not start: wlog_init returned -2097019903 (0x83020401): "
     "file open failed; log file @D/heartbeat.hex/sim.log"},
    {{"sim", "--scenario", "-"}, "user a\nlogin a\nexpect logins 1\nlogout a\n", 0, true,
     "quelld_sim: OK"},
    // Logging configured by a file in wlog's text form.
    {{"sim", "--log-conf", "@D/good.logconf", "--users", "5", "--rounds", "1"}, "", 0, true,
     "log: as configured in @D/good.logconf"},
    {{"sim", "--log-conf", "@D/none.logconf"}, "", 2, false,
     "quelld_sim: error: logging configuration @D/none.logconf: No such file or directory"},
    {{"sim", "--log-conf", "@D/dir"}, "", 2, false,
     "quelld_sim: error: logging configuration @D/dir: is a directory, not a file"},
    {{"sim", "--log-conf", "@D/bad.logconf"}, "", 2, false,
     "quelld_sim: error: logging configuration @D/bad.logconf:3: entry<Colour> is unknown"},
    {{"sim", "--log-conf", "@D/nozq.logconf"}, "", 2, false,
     "quelld_sim: error: logging configuration @D/nozq.logconf has no category zq"},
    {{"sim", "--config", "-", "--scenario", "-"}, "", 2, false,
     "--config - and --scenario - cannot both read standard input"},
    {{"sim", "--log-conf", "@D/good.logconf", "--log-mem", "wsm-data://1/a:1/b/c"}, "", 2, false,
     "--log-mem cannot be used with --log-conf"},
    // Options and numbers.
    {{"sim", "--bogus"}, "", 2, false,
     "quelld_sim: error: unknown option --bogus (see quelld_sim --help)"},
    {{"sim", "--bogus=1"}, "", 2, false, "unknown option --bogus (see quelld_sim --help)"},
    {{"sim", "--users", "0x10"}, "", 2, false,
     "--users: expected a number from 1 to 100000, got '0x10'"},
    {{"sim", "--users", "09", "--dump-scenario"}, "", 0, true, "# Built-in scenario: 9 users"},
    {{"sim", "--users", "010", "--dump-scenario"}, "", 0, true, "# Built-in scenario: 10 users"},
    {{"sim", "--help"}, "", 0, true, "usage: quelld_sim [options]"},
    // frame_decode: results on standard output, errors on standard error.
    {{"fd", "--help"}, "", 0, true, "usage: frame_decode"},
    {{"fd", "@D/dir"}, "", 2, false, "frame_decode: cannot read @D/dir: is a directory, not a file"},
    {{"fd", "@D/heartbeat.hex"}, "", 0, true, "TFrameHead: 12 of 12 bytes decoded"},
    {{"fd", "-"}, "0a 09 00 00 00000001 00000002", 0, true, "TFrameHead: 12 of 12 bytes decoded"},
    {{"fd", "--format", "binary", "@D/heartbeat.hex"}, "", 1, false, "error -20: "},
    {{"fd", "--hex", "24 09 00 00 00000001 00000002"}, "", 1, false,
     "error -20: cutVer from net-msg not in [BASEVERSION, CURRVERSION]\nback-trace: "},
    {{"fd", "--cut", "abc", "--hex", "0a"}, "", 2, false,
     "frame_decode: --cut: expected a version number from 0 to 4294967295, got 'abc' "
     "(see frame_decode --help)"},
    {{"fd", "--bogus"}, "", 2, false,
     "frame_decode: unknown option --bogus (see frame_decode --help)"},
    {{"fd", "--type", "nope", "--hex", "0a"}, "", 2, false, "frame_decode: unknown type 'nope'"},
    {{"fd"}, "", 2, false, "frame_decode: no input"},
    // wlog_example.
    {{"wx", "--help"}, "", 0, true, "usage: wlog_example [DIR]"},
    {{"wx", "--bogus"}, "", 2, false, "wlog_example: unknown option --bogus"},
    // vixc. The compile case writes @D/w.metalib, which the later cases read.
    {{"vixc", "--help"}, "", 0, true, "usage: vixc COMMAND ARGS"},
    {{"vixc", "--x"}, "", 2, false, "vixc: unknown option --x, see --help"},
    {{"vixc", "dump"}, "", 2, false, "vixc: dump needs LIB, see --help"},
    {{"vixc", "compile", VIX_SCHEMA, "-o", "@D/w.metalib"}, "", 0, true, "@D/w.metalib: "},
    {{"vixc", "compile", "@D/bad.vix", "-o", "@D/x.metalib"}, "", 1, false,
     "@D/bad.vix:2: unknown statement: struct\\x01X"},
    {{"vixc", "compile", "@D/none.vix", "-o", "@D/x.metalib"}, "", 2, false,
     "vixc: cannot read schema @D/none.vix: No such file or directory"},
    {{"vixc", "dump", "@D/w.metalib"}, "", 0, true,
     "meta[13] name=\"WLOGCONF\" type=struct id=-1 version=1..1 hsize=20367388"},
    {{"vixc", "dump", "@D/dir"}, "", 2, false,
     "vixc: cannot read library @D/dir: is a directory, not a file"},
    {{"vixc", "dump", "@D/corrupt.metalib"}, "", 1, false,
     "vixc: cannot load library @D/corrupt.metalib: not a metadata library"},
    {{"vixc", "print", "@D/w.metalib", "DevTerm", "@D/term.bin"}, "", 0, true,
     "[DevTerm version=\"1\"]:\n  StdType=WLOG_TERM_STDOUT\n"},
    {{"vixc", "print", "@D/w.metalib", "Nope", "@D/term.bin"}, "", 1, false,
     "vixc: library @D/w.metalib has no meta Nope"},
    {{"vixc", "print", "@D/w.metalib", "DevFile", "@D/term.bin"}, "", 1, false,
     "vixc: @D/term.bin: 4 bytes, but a DevFile is 160 bytes"},
    {{"vixc", "print", "@D/w.metalib", "DevTerm", "@D/none.bin"}, "", 2, false,
     "vixc: cannot read record file @D/none.bin: No such file or directory"},
    {{"vixc", "verify", "@D/w.metalib", "0123456789abcdef0123456789abcdef"}, "", 1, false,
     "vixc: @D/w.metalib: digest differs (the library's is "},
    // wlog_dump: binary files filtered by id, class and time; wrong input.
    {{"wd", "--help"}, "", 0, true, "usage: wlog_dump mem URI"},
    {{"wd", "--x"}, "", 2, false, "wlog_dump: unknown option --x (see wlog_dump --help)"},
    {{"wd", "bin", "@D/records.bin", "--id", "1000-1999", "--cls", "7"}, "", 0, true,
     " seq=1 id=1500 cls=7 type=0 ver=0 len=5: first\n"},
    {{"wd", "bin", "@D/records.bin", "--since", "1500", "--until", "3001"}, "", 0, true,
     "id=2000 cls=7 type=0 ver=0 len=6: second\n["},
    {{"wd", "bin", "@D/records.bin", "--cls", "8"}, "", 0, true,
     ".000005] seq=1 id=1600 cls=8 type=0 ver=0 len=2: 01FF\n"},
    {{"wd", "bin", "@D/cut.bin", "--id", "1"}, "", 1, false,
     "wlog_dump: @D/cut.bin: offset 91: record cut short"},
    {{"wd", "bin", "@D/dir"}, "", 2, false, "wlog_dump: cannot read @D/dir: is a directory, not a file"},
    {{"wd", "bin", "@D/records.bin", "@D/none"}, "", 2, false, "@D/none: No such file or directory"},
    {{"wd", "bin", "@D/records.bin", "--id", "5-1"}, "", 2, false, "bad --id value '5-1'"},
    {{"wd", "bin", "@D/records.bin", "--since", "yesterday"}, "", 2, false, "bad --since value"},
    {{"wd", "bin"}, "", 2, false, "bin needs at least one FILE"},
    {{"wd", "mem", "wsm-data://1/a:1/b/c", "--key", "0x7e7e0dd1"}, "", 2, false,
     "wlog_dump: no shared-memory registry at key 0x7e7e0dd1"},
    {{"wd", "mem", "u", "--interval", "5"}, "", 2, false, "bad --interval value '5'"},
    {{"wd", "tail"}, "", 2, false, "unknown command 'tail'"},
};
// clang-format on

TEST_F(Cli, EachCaseGivesItsStatusAndMessageAndLeavesNothing) {
  for (const Case& c : kCases) {
    std::string line;
    for (const std::string& a : c.args) line += a + " ";
    const Result r = Finish(Start(c.args, c.input));
    const std::string want = Expand(c.says);
    EXPECT_EQ(r.status, c.status) << line << "\n" << r.err;
    const std::string& stream = c.on_stdout ? r.out : r.err;
    EXPECT_NE(stream.find(want), std::string::npos)
        << line << "\nwanted: " << want << "\nstdout: " << r.out.substr(0, 2000)
        << "\nstderr: " << r.err.substr(0, 2000);
    if (c.status != 0) {
      EXPECT_EQ(r.out.find("error"), std::string::npos) << line << r.out;
    }
    EXPECT_TRUE(r.clean) << line << ": left files behind";
  }
}

// The digest vixc md5 prints is the one vixc verify accepts.
TEST_F(Cli, VixcVerifiesTheDigestItPrints) {
  ASSERT_EQ(0, Finish(Start({"vixc", "compile", VIX_SCHEMA, "-o", "@D/v.metalib"}, "")).status);
  const Result md5 = Finish(Start({"vixc", "md5", "@D/v.metalib"}, ""));
  ASSERT_EQ(0, md5.status) << md5.err;
  ASSERT_EQ(md5.out.substr(32), "  " + dir_ + "/v.metalib\n");
  const Result ok = Finish(Start({"vixc", "verify", "@D/v.metalib", md5.out.substr(0, 32)}, ""));
  EXPECT_EQ(0, ok.status) << ok.err;
  EXPECT_EQ(dir_ + "/v.metalib: digest matches\n", ok.out);
}

// A run stopped by a signal quits the plug-in, removes its work directory and exits with
// 128 + the signal.
TEST_F(Cli, StopSignalCleansUpAndExitsWithTheConventionalStatus) {
  const std::pair<int, const char*> signals[] = {{SIGINT, "SIGINT"}, {SIGTERM, "SIGTERM"}};
  for (const auto& s : signals) {
    const pid_t pid = Start({"sim", "--scenario", "@D/slow.scenario"}, "");
    // Wait until the work directory exists: the handlers are in place by then.
    const std::string tmp = dir_ + "/run/tmp";
    for (int i = 0; i < 60000 && fs::is_empty(tmp); ++i) usleep(1000);
    ASSERT_FALSE(fs::is_empty(tmp));
    kill(pid, s.first);
    const Result r = Finish(pid);
    EXPECT_EQ(r.status, 128 + s.first) << r.err;
    EXPECT_NE(r.err.find(std::string("quelld_sim: stopped by ") + s.second), std::string::npos)
        << r.err;
    EXPECT_TRUE(r.clean);
  }
}

}  // namespace
