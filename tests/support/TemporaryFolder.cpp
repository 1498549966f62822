#include "support/TemporaryFolder.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <system_error>

#include <gtest/gtest.h>

namespace fs = std::filesystem;

TemporaryFolder::TemporaryFolder() : TemporaryFolder(testing::TempDir()) {}

TemporaryFolder TemporaryFolder::InMemory() {
    const std::string shared = "/dev/shm/";
    std::error_code missing;
    return TemporaryFolder(fs::is_directory(shared, missing) ? shared : testing::TempDir());
}

TemporaryFolder::TemporaryFolder(const std::string& parent) : m_Path(parent + "qvtest-XXXXXX") {
    if (!mkdtemp(m_Path.data()))
        throw std::system_error(errno, std::generic_category(), m_Path);
}

TemporaryFolder::~TemporaryFolder() {
    std::error_code ignored; // a test may have taken the folder away, or its permissions
    fs::remove_all(m_Path, ignored);
}

std::vector<std::string> TemporaryFolder::List(const std::string& subfolder) const {
    std::vector<std::string> names;
    for (const auto& entry : fs::directory_iterator(File(subfolder).GetPath()))
        names.push_back(entry.path().filename());
    std::sort(names.begin(), names.end());
    return names;
}

bool TemporaryFolder::Exists(const std::string& name) const {
    return fs::symlink_status(File(name).GetPath()).type() != fs::file_type::not_found;
}

std::string TemporaryFolder::Read(const std::string& name) const {
    std::ifstream file;
    file.exceptions(std::ios::failbit | std::ios::badbit);
    file.open(File(name).GetPath(), std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

void TemporaryFolder::Write(const std::string& name, const std::string& content) const {
    std::ofstream file;
    file.exceptions(std::ios::failbit | std::ios::badbit);
    file.open(File(name).GetPath(), std::ios::binary | std::ios::trunc);
    file << content;
    file.close();
}

void TemporaryFolder::Remove(const std::string& name) const {
    fs::remove_all(File(name).GetPath());
}

void TemporaryFolder::Empty() const {
    for (const std::string& name : List())
        Remove(name);
}
