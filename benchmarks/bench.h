// One work that several do: the library, hand-written code that does only the task, and what a user could take instead.
// A source bench_WORK.cpp names who can do it:
//   int main(int count, char** words) { return bench(count, words, {{"library", byLibrary}, {"by hand", byHand}}); }
//   build/benchmark/bin/bench_WORK           the names, one a line
//   build/benchmark/bin/bench_WORK NAME      does it once, in a process of its own, so that the memory is its own, and
//                                            prints {"seconds": ..., "cpu_seconds": ..., "peak_kb": ..., "result": ...}
// Further words reach the work as they are; `--short` stands for an input so small that it only shows that it runs.
#pragma once

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <ctime>
#include <functional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <sys/resource.h>

struct Bench {
  std::vector<std::string> words; // those after the name, without --short
  bool isShort = false;
  std::string result; // what all who do the work must agree on: a checksum, a count

  // What `work` does is measured, what stands around it is not. Several calls add up.
  template<typename Work>
  void measure(Work&& work) {
    const auto start = std::chrono::steady_clock::now();
    const std::clock_t cpuStart = std::clock();
    std::forward<Work>(work)();
    cpuSeconds += static_cast<double>(std::clock() - cpuStart) / CLOCKS_PER_SEC;
    seconds += std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  }

  double seconds = 0;
  double cpuSeconds = 0;
};

// For `result`: FNV-1a of 64 bits.
inline std::string checksumOf(std::string_view bytes) {
  std::uint64_t hash = 14695981039346656037U;
  for (const char byte : bytes)
    hash = (hash ^ static_cast<unsigned char>(byte)) * 1099511628211U;
  return std::to_string(bytes.size()) + " bytes, " + std::to_string(hash);
}

inline int bench(int count, char** words,
                 const std::vector<std::pair<std::string, std::function<void(Bench&)>>>& doers) {
  if (count < 2) {
    for (const auto& doer : doers)
      std::puts(doer.first.c_str());
    return 0;
  }
  Bench run;
  for (int i = 2; i < count; ++i)
    if (std::string_view(words[i]) == "--short")
      run.isShort = true;
    else
      run.words.emplace_back(words[i]);
  for (const auto& [name, work] : doers) {
    if (name != words[1])
      continue;
    try {
      work(run);
    } catch (const std::exception& failure) {
      std::fprintf(stderr, "%s: %s\n", words[0], failure.what());
      return 1;
    }
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    std::printf("{\"seconds\": %.6f, \"cpu_seconds\": %.6f, \"peak_kb\": %ld, \"result\": \"%s\"}\n",
                run.seconds, run.cpuSeconds, usage.ru_maxrss, run.result.c_str());
    return 0;
  }
  std::fprintf(stderr, "%s: nobody is named \"%s\"\n", words[0], words[1]);
  return 2;
}
