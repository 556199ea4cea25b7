#include <atomic>
#include <cstdlib>
#include <new>

#include "tests/watcher/FileWatcherFixture.h"

namespace {

std::atomic<std::size_t> allocations = 0;

}  // namespace

// Replaced for the whole test program, so that a test can count.
void* operator new(std::size_t size) {
    ++allocations;
    if (void* memory = std::malloc(size == 0 ? 1 : size)) {
        return memory;
    }
    throw std::bad_alloc();
}
void* operator new(std::size_t size, const std::nothrow_t& /*tag*/) noexcept {
    ++allocations;
    return std::malloc(size == 0 ? 1 : size);
}
void operator delete(void* memory) noexcept { std::free(memory); }
void operator delete(void* memory, std::size_t /*size*/) noexcept { std::free(memory); }

namespace glintmark {
namespace {

class FileWatcherAllocationTest : public FileWatcherTest {
protected:
    void fill(const std::string& folder, int count) {
        for (int i = 0; i < count; ++i) {
            files().create(folder + "/a name too long to be kept in place " + std::to_string(i));
            files().create(folder + "/a known file with a long name " + std::to_string(i) +
                           ".webloc");
        }
    }

    std::size_t allocationsOfAScan(const std::string& folder) {
        auto watcher = makeWatcher({folder});
        files().forgetListings();
        const auto before = allocations.load();
        watcher->scanDirectoryShallow(folder);
        return allocations - before;
    }
};

TEST_F(FileWatcherAllocationTest, AScanAllocatesNothingPerNameThatIsNotNew) {
    fill("/few", 10);
    fill("/many", 1000);
    // With more names the path buffer may grow once more. No name may allocate.
    EXPECT_LE(allocationsOfAScan("/many"), allocationsOfAScan("/few") + 1);
}

}  // namespace
}  // namespace glintmark
