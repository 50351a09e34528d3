#pragma once
// A program that is stopped while it reads a file, so that something can happen meanwhile.
#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>
#include <system_error>
#include <vector>

namespace orvo::test {

struct StoppedAmid {
  std::vector<std::string> words;  ///< the program's path and its arguments
  std::filesystem::path directory;
  std::filesystem::path file;       ///< that it reads
  std::uint64_t from = 0;           ///< it is stopped once it has read more than this of it,
  std::uint64_t to = 0;             ///< and less than this
  std::function<void()> prepare;    ///< before each attempt: writes the file
  std::function<void()> meanwhile;  ///< while it is stopped
  int err = -1;                     ///< what becomes its standard error; -1 = the test's own
};

/// The position of a process in a file that it has open; 0 if it has not opened it.
inline std::uint64_t position_in(pid_t process, const std::filesystem::path& file) {
  const std::filesystem::path proc = "/proc/" + std::to_string(process);
  std::error_code error;
  for (const auto& entry : std::filesystem::directory_iterator(proc / "fd", error)) {
    if (std::filesystem::read_symlink(entry.path(), error) != file) continue;
    std::ifstream info(proc / "fdinfo" / entry.path().filename());
    std::string word;
    std::uint64_t position = 0;
    info >> word >> position;
    return position;
  }
  return 0;
}

/// Stops the process where it was asked for; false when it was not seen there.
inline bool stop_amid(pid_t process, const StoppedAmid& how) {
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
  while (std::chrono::steady_clock::now() < deadline) {
    if (position_in(process, how.file) > how.from) {
      ::kill(process, SIGSTOP);
      int status = 0;
      if (::waitpid(process, &status, WUNTRACED) != process || !WIFSTOPPED(status)) return false;
      return position_in(process, how.file) < how.to;
    }
    siginfo_t ended = {};
    if (::waitid(P_PID, static_cast<id_t>(process), &ended, WEXITED | WNOHANG | WNOWAIT) != 0 || ended.si_pid != 0)
      return false;
  }
  return false;
}

/// Runs the program to its end, its standard output thrown away: to its exit status, 128 + the number of the signal
/// that ended it, or 126 if it was never seen where it was to be stopped.
inline int run_stopped_amid(StoppedAmid how) {
  std::vector<char*> argv;
  for (std::string& word : how.words) argv.push_back(word.data());
  argv.push_back(nullptr);
  for (int attempt = 0; attempt < 20; ++attempt) {
    how.prepare();
    const pid_t process = ::fork();
    if (process == 0) {
      if (::chdir(how.directory.c_str()) != 0 || ::dup2(::open("/dev/null", O_WRONLY), 1) < 0) ::_exit(125);
      if (how.err >= 0 && ::dup2(how.err, 2) < 0) ::_exit(125);
      ::execv(argv[0], argv.data());
      ::_exit(127);
    }
    const bool caught = stop_amid(process, how);
    if (caught) how.meanwhile();
    ::kill(process, SIGCONT);
    int status = 0;
    ::waitpid(process, &status, 0);
    if (caught) return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  }
  return 126;
}

}  // namespace orvo::test
