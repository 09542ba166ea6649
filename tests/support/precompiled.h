// What nearly every test includes: compiled once for each preset (cmake/Testing.cmake). A test
// still includes what it uses; clang-tidy reads it without this file.
#ifndef ZAREXT_TESTS_SUPPORT_PRECOMPILED_H_
#define ZAREXT_TESTS_SUPPORT_PRECOMPILED_H_

#ifdef _WIN32
#include <windows.h>

#include <wincrypt.h>
#endif

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <random>
#include <set>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#endif  // ZAREXT_TESTS_SUPPORT_PRECOMPILED_H_
