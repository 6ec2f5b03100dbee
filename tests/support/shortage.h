// Operations without enough memory. For one source per program, as allocations.h, which it brings.
#pragma once

#include "support/allocations.h"
#include "support/descriptors.h"

#include <gtest/gtest.h>

#include <functional>
#include <new>
#include <string>

// Does it with its allocations failing, and once more with memory, when its answer is the one that it gave before.
inline void expectSameAnswerAfterEveryShortage(const std::function<std::string()>& operation) {
  const std::string answer = operation();
  const auto open = openDescriptors();
  Allocations::failEach(
      [&] {
        try {
          operation();
        } catch (const std::bad_alloc&) {
        }
      },
      [&](long n) {
        ASSERT_EQ(operation(), answer) << "allocation " << n;
        ASSERT_EQ(openDescriptors(), open) << "allocation " << n;
      });
}
