// What nearly every test includes, precompiled. A test names what it uses all the same: not every compiler gets this.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <rapidcheck.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <map>
#include <memory>
#include <string>
#include <vector>
