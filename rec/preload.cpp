// Linux: the recorder carries the IO library's SONAME, and the loader answers a later load by
// that plain name with an object already loaded under it. Windows answers it with a module
// already loaded under that FILE name, so the recorder is loaded from a copy named as the IO
// library, in a directory of its own; the target, named the same, is copied beside it under
// another name, so that only one module is called zarimio.dll.
#include "preload.h"

#include <atomic>
#include <filesystem>
#include <system_error>

#include "hw/zarimio_abi.h"
#include "platform/os.h"

namespace zrec {

namespace fs = std::filesystem;

namespace {

// A directory no earlier run or other process uses: its files stay loaded until exit.
fs::path FreshDirectory(std::error_code& ec) {
  static std::atomic<unsigned> serial{0};
  const fs::path base = fs::temp_directory_path(ec);
  if (ec) return {};
  for (int attempt = 0; attempt < 100; ++attempt) {
    const fs::path dir = base / ("zarimrec-" + std::to_string(tvx::os::ProcessId()) + "-" +
                                 std::to_string(serial++));
    if (fs::create_directory(dir, ec)) return dir;
    if (ec) return {};
  }
  ec = std::make_error_code(std::errc::file_exists);
  return {};
}

}  // namespace

Preload InstallRecorder(const std::string& recorder_path, const std::string& target,
                        const std::string& file, const std::string& app) {
  Preload result;
  std::string recorder = recorder_path;
  result.target = target;
  if (tvx::os::LoaderMatchesFileName()) {
    std::error_code ec;
    const fs::path dir = FreshDirectory(ec);
    char name[64];
    tvx::os::DynamicLibraryFileName(tvx::zarimio::kLibraryName, name, sizeof name);
    const fs::path copy = dir / name;
    if (!ec) fs::copy_file(recorder_path, copy, ec);
    if (ec) {
      result.error = "cannot copy the recorder " + recorder_path + ": " + ec.message();
      return result;
    }
    recorder = copy.string();
    if (!target.empty()) {
      const fs::path renamed = dir / (fs::path(name).stem().string() + "-target" +
                                      fs::path(name).extension().string());
      fs::copy_file(target, renamed, ec);
      if (ec) {
        result.error = "cannot copy the target " + target + ": " + ec.message();
        return result;
      }
      result.target = renamed.string();
    }
  }
  if (!tvx::os::SetEnvironment("ZARIMREC_TARGET", result.target.c_str()) ||
      !tvx::os::SetEnvironment("ZARIMREC_FILE", file.c_str()) ||
      !tvx::os::SetEnvironment("ZARIMREC_APP", app.c_str())) {
    result.error = "cannot set the recorder's environment";
    return result;
  }
  // Kept loaded for the rest of the process: the IO library's users load it by name later.
  if (tvx::os::LoadDynamicLibraryPath(recorder.c_str()) == nullptr)
    result.error = "cannot load the recorder " + recorder + " (error " +
                   std::to_string(tvx::os::LastError()) + ")";
  return result;
}

std::string ModuleDirectory(const void* address) {
  char path[4096];
  if (!tvx::os::ModulePath(address, path, sizeof path)) return {};
  return fs::path(path).parent_path().string();
}

}  // namespace zrec
