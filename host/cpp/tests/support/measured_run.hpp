#pragma once
// A run of a program with what it cost: processor time and peak memory, as the kernel counted them.
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdint>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <vector>

#include "support/run_program.hpp"
#include "support/temp_directory.hpp"

namespace orvo::test {

struct MeasuredRun {
  ProgramResult result;
  double cpu_seconds = 0;
  /// At least what the test itself held when it started the program: the kernel counts from before the exec.
  std::int64_t peak_bytes = 0;
};

/// Runs the program in `directory` and ends it with SIGXCPU when it has used `most_cpu_seconds`.
inline MeasuredRun measured_run(const std::string& program, const std::vector<std::string>& arguments,
                                const std::filesystem::path& directory, unsigned most_cpu_seconds) {
  const TempDirectory capture;
  const std::string out_path = (capture / "out").string();
  const std::string err_path = (capture / "err").string();
  std::vector<std::string> words{program};
  words.insert(words.end(), arguments.begin(), arguments.end());
  std::vector<char*> argv;
  for (std::string& word : words) argv.push_back(word.data());
  argv.push_back(nullptr);

  const pid_t child = ::fork();
  if (child < 0) throw std::runtime_error("fork failed");
  if (child == 0) {
    const rlimit cpu_limit{most_cpu_seconds, most_cpu_seconds + 1};
    const int out = ::open(out_path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    const int err = ::open(err_path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    if (::chdir(directory.c_str()) != 0 || ::dup2(out, 1) < 0 || ::dup2(err, 2) < 0 ||
        ::setrlimit(RLIMIT_CPU, &cpu_limit) != 0) {
      ::_exit(126);
    }
    ::execv(program.c_str(), argv.data());
    ::_exit(127);
  }
  int status = 0;
  rusage usage = {};
  if (::wait4(child, &status, 0, &usage) != child) throw std::runtime_error("wait4 failed");
  const auto seconds = [](const timeval& time) {
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
  };
  MeasuredRun run;
  run.result.exit_status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  run.result.out = read_file(out_path);
  run.result.err = read_file(err_path);
  run.cpu_seconds = seconds(usage.ru_utime) + seconds(usage.ru_stime);
  run.peak_bytes = std::int64_t{usage.ru_maxrss} * 1024;
  return run;
}

}  // namespace orvo::test
