#include "linux/files/DirectoryReader.h"

#include <dirent.h>
#include <unistd.h>

#include <cstring>

#include "linux/queues/BlockingSection.h"

namespace glintmark::platform {

namespace {

constexpr std::size_t bufferBytes = std::size_t{32} * 1024;

bool isDotEntry(std::string_view name) { return name == "." || name == ".."; }

}  // namespace

DirectoryReader::DirectoryReader() : buffer_(new char[bufferBytes]) {}

void DirectoryReader::begin(int descriptor) {
    descriptor_ = descriptor;
    position_ = 0;
    end_ = 0;
    failed_ = false;
}

bool DirectoryReader::next(Entry& entry) {
    do {
        if (position_ == end_ && !fill()) {
            return false;
        }
        const auto* record = buffer_.get() + position_;
        decltype(dirent64::d_reclen) length{};
        std::memcpy(&length, record + offsetof(dirent64, d_reclen), sizeof length);
        std::memcpy(&entry.type, record + offsetof(dirent64, d_type), sizeof entry.type);
        entry.name = record + offsetof(dirent64, d_name);
        position_ += length;
    } while (isDotEntry(entry.name));
    return true;
}

bool DirectoryReader::fill() {
    const BlockingSection section;
    const auto bytes = ::getdents64(descriptor_, buffer_.get(), bufferBytes);
    failed_ = bytes < 0;
    position_ = 0;
    end_ = bytes > 0 ? static_cast<std::size_t>(bytes) : 0;
    return bytes > 0;
}

}  // namespace glintmark::platform
