// vixc: metadata libraries from the command line: compile a schema into a library, dump a
// library, print a binary record through it, and check or print its MD5 digest.
//
// Exit status: 0 done; 1 the input is readable but wrong (a schema mistake, a damaged library,
// an unknown meta, a record of the wrong size, a digest that differs); 2 a usage mistake or a
// file argument that is not a readable regular file.
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "emit.h"
#include "model.h"
#include "tool_input.h"
#include "vix/vix_error.h"
#include "vix/vix_io.h"
#include "vix/vix_metalib.h"
#include "vix/vix_types.h"

namespace {

constexpr size_t kMaxRecordBytes = 256u << 20;  // largest binary record file printed

const char kUsage[] =
    "usage: vixc COMMAND ARGS\n"
    "\n"
    "Commands:\n"
    "  compile SCHEMA -o OUT  compile a record schema (.vix) into the metadata library OUT;\n"
    "                         the schema's metalib statement gives the layout (natural C\n"
    "                         alignment when it has none), identifier and version\n"
    "  dump LIB               print every macro, group, meta and entry of the library\n"
    "  print LIB META FILE    print the binary record in FILE (its size must be the meta's\n"
    "                         host size) as text through the meta\n"
    "  md5 LIB                print the library's MD5 digest\n"
    "  verify LIB DIGEST      check the library against an MD5 digest (32 hex digits)\n"
    "  --help                 this text\n"
    "\n"
    "Exit status: 0 done, 1 wrong input (schema mistake, damaged library, unknown meta, wrong\n"
    "record size, digest differs), 2 usage mistake or unreadable file.\n";

int Usage(const std::string& what) {
  std::fprintf(stderr, "vixc: %s, see --help\n", what.c_str());
  return 2;
}

int Fail(const std::string& what) {
  std::fprintf(stderr, "vixc: %s\n", what.c_str());
  return 1;
}

// What went wrong in a failed runtime call: its detail, or a word on the codes that come from
// a bad library file, and the code.
std::string VixError(int ret) {
  const char* detail = vix_get_error_detail();
  std::string text;
  if (detail != nullptr && std::strncmp(detail, "; ", 2) == 0) {
    text = detail + 2;
  } else if (ret == VIX_ERROR_BUF_TOO_SHORT || ret == VIX_ERROR_BAD_METALIB_FILE) {
    text = "not a metadata library, or cut short";
  } else if (ret == VIX_ERROR_CHECKSUM) {
    text = "checksum mismatch: the library is damaged";
  }
  char code[32];
  std::snprintf(code, sizeof(code), "error 0x%08x", static_cast<unsigned>(ret));
  return text.empty() ? code : text + " (" + code + ")";
}

// A file argument must be a readable regular file; false with the message printed.
bool CheckInput(const std::string& what, const std::string& path) {
  std::string why;
  if (zq_tools::CheckRegularFile(path, &why)) return true;
  std::fprintf(stderr, "vixc: cannot read %s %s\n", what.c_str(), why.c_str());
  return false;
}

// Loads a library argument; 0, or the exit status with the message printed.
int Load(const std::string& path, LPVIXMETALIB* lib) {
  if (!CheckInput("library", path)) return 2;
  const int ret = vix_load_metalib(lib, path.c_str());
  if (ret != 0) return Fail("cannot load library " + path + ": " + VixError(ret));
  return 0;
}

int Compile(const std::string& schemaPath, const std::string& outPath) {
  if (!CheckInput("schema", schemaPath)) return 2;
  std::string why;
  if (!zq_tools::CheckOutputFile(outPath, &why)) {
    std::fprintf(stderr, "vixc: cannot write %s\n", why.c_str());
    return 2;
  }
  vixgen::Schema schema;
  std::string error, bytes;
  if (!vixgen::parseSchema(schemaPath, schema, error) ||
      !vixgen::buildMetalib(schema, bytes, error)) {
    std::fprintf(stderr, "%s\n", error.c_str());
    return 1;
  }
  FILE* fp = std::fopen(outPath.c_str(), "wb");
  bool ok = fp != nullptr && std::fwrite(bytes.data(), 1, bytes.size(), fp) == bytes.size();
  if (fp != nullptr && std::fclose(fp) != 0) ok = false;
  if (!ok) return Fail("cannot write " + outPath + ": " + std::strerror(errno));
  std::printf("%s: %zu bytes\n", outPath.c_str(), bytes.size());
  return 0;
}

int Dump(const std::string& libPath) {
  LPVIXMETALIB lib = nullptr;
  int status = Load(libPath, &lib);
  if (status != 0) return status;
  const int ret = vix_dump_metalib(lib, stdout);
  if (ret != 0) status = Fail("cannot dump " + libPath + ": " + VixError(ret));
  vix_free_lib(&lib);
  return status;
}

int Print(const std::string& libPath, const std::string& metaName, const std::string& path) {
  if (!CheckInput("record file", path)) return 2;
  LPVIXMETALIB lib = nullptr;
  int status = Load(libPath, &lib);
  if (status != 0) return status;
  const VIXMETA* meta = vix_get_meta_by_name(lib, metaName.c_str());
  std::string data, why;
  if (meta == nullptr) {
    status = Fail("library " + libPath + " has no meta " + metaName);
  } else if (!zq_tools::ReadInput(path, kMaxRecordBytes, &data, &why)) {
    std::fprintf(stderr, "vixc: cannot read record file %s\n", why.c_str());
    status = 2;
  } else if (data.size() != vix_get_meta_size(meta)) {
    status = Fail(path + ": " + std::to_string(data.size()) + " bytes, but a " + metaName + " is " +
                  std::to_string(vix_get_meta_size(meta)) + " bytes");
  } else {
    const VIXDATA host = {&data[0], data.size()};
    const int ret = vix_fprintf(meta, stdout, &host, 0);
    if (ret != 0) {
      std::fflush(stdout);
      status = Fail("cannot print " + path + " as " + metaName + ": " + VixError(ret));
    } else {
      std::printf("\n");
    }
  }
  vix_free_lib(&lib);
  return status;
}

std::string Digest(const VIXMETALIB* lib) {
  uint8_t digest[VIX_MD5_DIGEST_LEN];
  char text[VIX_MD5_STR_LEN];
  vix_md5hash_buffer(digest, lib, vix_size(lib));
  vix_md5hash2str(digest, text, sizeof(text));
  return text;
}

int Md5(const std::string& libPath) {
  LPVIXMETALIB lib = nullptr;
  const int status = Load(libPath, &lib);
  if (status != 0) return status;
  std::printf("%s  %s\n", Digest(lib).c_str(), libPath.c_str());
  vix_free_lib(&lib);
  return 0;
}

int Verify(const std::string& libPath, const std::string& digest) {
  LPVIXMETALIB lib = nullptr;
  int status = Load(libPath, &lib);
  if (status != 0) return status;
  const int ret = vix_verify_metalib(lib, digest.c_str());
  if (ret == 0) {
    std::printf("%s: digest matches\n", libPath.c_str());
  } else if (ret == VIX_ERROR_DIGEST_MISMATCH) {
    status = Fail(libPath + ": digest differs (the library's is " + Digest(lib) + ")");
  } else {
    status = Fail("cannot verify " + libPath + ": " + VixError(ret));
  }
  vix_free_lib(&lib);
  return status;
}

}  // namespace

int main(int argc, char** argv) {
  std::vector<std::string> args;
  std::string out;
  for (int i = 1; i < argc; ++i) {
    const std::string a = argv[i];
    if (a == "--help" || a == "-h") {
      std::fputs(kUsage, stdout);
      return 0;
    }
    if (a == "-o") {
      if (i + 1 >= argc) return Usage("-o needs a file");
      out = argv[++i];
    } else if (a.size() > 1 && a[0] == '-') {
      return Usage("unknown option " + a.substr(0, a.find('=')));
    } else {
      args.push_back(a);
    }
  }
  if (args.empty()) return Usage("no command");
  const std::string& cmd = args[0];
  const size_t n = args.size() - 1;
  if (cmd != "compile" && !out.empty()) return Usage("-o applies to compile");
  if (cmd == "compile") {
    if (n != 1 || out.empty()) return Usage("compile needs SCHEMA -o OUT");
    return Compile(args[1], out);
  }
  if (cmd == "dump") return n == 1 ? Dump(args[1]) : Usage("dump needs LIB");
  if (cmd == "print")
    return n == 3 ? Print(args[1], args[2], args[3]) : Usage("print needs LIB META FILE");
  if (cmd == "md5") return n == 1 ? Md5(args[1]) : Usage("md5 needs LIB");
  if (cmd == "verify") return n == 2 ? Verify(args[1], args[2]) : Usage("verify needs LIB DIGEST");
  return Usage("unknown command " + cmd);
}
