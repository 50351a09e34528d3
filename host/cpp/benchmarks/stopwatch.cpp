// Runs a program and writes on standard error what it cost: wall seconds, processor seconds, peak memory in KiB. A
// program of its own, and a small one: the kernel counts the memory of whoever starts a program as that program's.
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>

namespace {

double seconds(const timeval& time) {
  return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2) return 64;
  const auto start = std::chrono::steady_clock::now();
  const pid_t child = ::fork();
  if (child == 0) {
    ::execv(argv[1], argv + 1);
    ::_exit(127);
  }
  int status = 0;
  rusage usage = {};
  if (child < 0 || ::wait4(child, &status, 0, &usage) != child) return 1;
  const std::chrono::duration<double> wall = std::chrono::steady_clock::now() - start;
  std::fprintf(stderr, "%.6f %.6f %ld\n", wall.count(), seconds(usage.ru_utime) + seconds(usage.ru_stime),
               usage.ru_maxrss);
  return WIFEXITED(status) ? WEXITSTATUS(status) : 1;
}
