// A folder of the test's own, removed with all that is in it.
#pragma once

#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>
#include <string_view>

class TempFolder {
public:
    TempFolder() {
        std::string name = (std::filesystem::temp_directory_path() / "morrow-XXXXXX").string();
        if (::mkdtemp(name.data()) == nullptr)
            throw std::runtime_error("no temporary folder");
        m_path = name;
    }
    TempFolder(const TempFolder&) = delete;
    TempFolder& operator=(const TempFolder&) = delete;
    ~TempFolder() {
        std::error_code ignored;
        std::filesystem::remove_all(m_path, ignored);
    }

    [[nodiscard]] const std::filesystem::path& Path() const noexcept { return m_path; }
    // The path of a file in it.
    [[nodiscard]] std::string File(const std::string& name) const { return (m_path / name).string(); }
    // Writes a file in it and gives its path.
    std::string Write(const std::string& name, std::string_view content) const {
        std::ofstream(File(name), std::ios::binary) << content;
        return File(name);
    }

private:
    std::filesystem::path m_path;
};
