#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <span>
#include <vector>

#include "linux/images/PixelMemory.h"

namespace glintmark::platform {
namespace {

constexpr std::size_t size = 4096;

void fill(const std::shared_ptr<std::uint8_t>& memory, std::size_t bytes, std::uint8_t value) {
    std::ranges::fill(std::span(memory.get(), bytes), value);
}

TEST(PixelMemoryTest, WhatIsGivenBackIsTakenAgain) {
    const auto memory = std::make_shared<PixelMemory>();
    auto taken = memory->take(size);
    const std::uint8_t* const start = taken.get();
    taken.reset();
    EXPECT_EQ(memory->take(size).get(), start);
}

TEST(PixelMemoryTest, WhatIsInUseIsNotGivenTwice) {
    const auto memory = std::make_shared<PixelMemory>();
    std::vector<std::shared_ptr<std::uint8_t>> all;
    for (std::uint8_t i = 0; i < 20; ++i) {
        all.push_back(memory->take(size));
        fill(all.back(), size, i);
    }
    for (std::uint8_t i = 0; i < 20; ++i) {
        EXPECT_THAT(std::span(all[i].get(), size), testing::Each(i));
    }
}

TEST(PixelMemoryTest, ALargerImageFitsWhereASmallerOneWas) {
    const auto memory = std::make_shared<PixelMemory>();
    fill(memory->take(1), 1, 1);
    const auto whole = memory->take(PixelMemory::blockBytes);
    fill(whole, PixelMemory::blockBytes, 2);
    EXPECT_EQ(whole.get()[PixelMemory::blockBytes - 1], 2);
}

TEST(PixelMemoryTest, PixelsMayOutliveTheirOrigin) {
    auto memory = std::make_shared<PixelMemory>();
    const auto taken = memory->take(size);
    memory.reset();
    fill(taken, size, 3);
    EXPECT_THAT(std::span(taken.get(), size), testing::Each(3));
}

}  // namespace
}  // namespace glintmark::platform
