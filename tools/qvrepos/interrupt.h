// Interrupts (Ctrl-C, a termination request, a hang-up) end the tool at once and leave nothing behind.
#pragma once

#include <filesystem>
#include <mutex>

class Interrupts {
public:
  // Call once, before any thread is started: from then on a thread of its own receives the signals.
  static void watch();

  // While one of these lives, an interrupt waits: a file is being put in its place.
  class Hold {
  public:
    Hold();

  private:
    std::unique_lock<std::mutex> m_lock;
  };

  // A folder of the tool's own for temporary files, which becomes TMPDIR. It ends, and with it what is in it, with this
  // object or at an interrupt, unless it is kept.
  class Scratch {
  public:
    Scratch();
    ~Scratch();
    Scratch(const Scratch&) = delete;
    Scratch& operator=(const Scratch&) = delete;

    void keep();
  };
};
