// Interrupts (Ctrl-C, Ctrl-\\, a termination request, a hang-up) end the tool at once and leave nothing behind.
#pragma once

#include <filesystem>
#include <functional>
#include <list>
#include <mutex>
#include <optional>

class Interrupts {
public:
  // Call once, before any thread is started: from then on a thread of its own receives the signals.
  static void watch();

  // While one of these lives, an interrupt waits: a file is being put in its place.
  class Hold {
  public:
    Hold();

  private:
    std::unique_lock<std::recursive_mutex> m_lock;
  };

  // What is undone when this object ends, or at an interrupt before. What is to be undone is done while a Hold lives,
  // and this object made before that ends.
  class Undo {
  public:
    explicit Undo(std::function<void()> undo);
    ~Undo();
    Undo(const Undo&) = delete;
    Undo& operator=(const Undo&) = delete;

  private:
    std::list<std::function<void()>>::iterator m_undo;
  };

  // A folder of the tool's own for temporary files, which becomes TMPDIR. It ends, and with it what is in it, with this
  // object or at an interrupt, unless it is kept.
  class Scratch {
  public:
    Scratch();
    void keep();

  private:
    bool m_kept = false;
    std::optional<Undo> m_undo;
  };
};
