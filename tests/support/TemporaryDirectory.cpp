#include "tests/support/TemporaryDirectory.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "tests/support/WholeFile.h"

namespace glintmark::test {

namespace fs = std::filesystem;

TemporaryDirectory::TemporaryDirectory() {
    std::string name = (fs::temp_directory_path() / "glintmark-test.XXXXXX").string();
    EXPECT_NE(::mkdtemp(name.data()), nullptr);
    path_ = fs::canonical(name).string();
}

TemporaryDirectory::~TemporaryDirectory() {
    std::error_code ignored;
    fs::remove_all(path_, ignored);
}

std::string TemporaryDirectory::write(const std::string& name, const std::string& bytes) const {
    fs::create_directories(fs::path(path(name)).parent_path());
    std::ofstream file(path(name), std::ios::binary);
    file << bytes;
    file.close();
    EXPECT_TRUE(file) << name;
    return path(name);
}

void TemporaryDirectory::createDirectories(const std::string& name) const {
    std::error_code error;
    fs::create_directories(path(name), error);
    EXPECT_FALSE(error) << name << ": " << error.message();
}

void TemporaryDirectory::createLink(const std::string& target, const std::string& name) const {
    std::error_code error;
    fs::create_symlink(target, path(name), error);
    EXPECT_FALSE(error) << name << ": " << error.message();
}

void TemporaryDirectory::move(const std::string& from, const std::string& to) const {
    std::error_code error;
    fs::rename(path(from), path(to), error);
    EXPECT_FALSE(error) << from << ": " << error.message();
}

void TemporaryDirectory::remove(const std::string& name) const {
    std::error_code error;
    EXPECT_GT(fs::remove_all(path(name), error), 0U) << name << ": " << error.message();
}

std::string TemporaryDirectory::read(const std::string& name) const {
    return wholeFile(path(name));
}

}  // namespace glintmark::test
