// ttservice::test::TempDir: a fresh folder under the system's temporary directory, removed with
// everything in it when the object goes. path() is empty when the folder could not be made.
#pragma once

#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

namespace ttservice {
namespace test {

class TempDir {
public:
    explicit TempDir(const std::string& tag = "tt-test") {
        const std::string tmpl = (std::filesystem::temp_directory_path() / (tag + "-XXXXXX")).string();
        std::vector<char> buf(tmpl.begin(), tmpl.end());
        buf.push_back('\0');
        if (mkdtemp(buf.data())) m_strPath = buf.data();
    }
    ~TempDir() {
        std::error_code ignored;
        if (!m_strPath.empty()) std::filesystem::remove_all(m_strPath, ignored);
    }
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;

    const std::string& path() const { return m_strPath; }
    // The path of `name` inside the folder.
    std::string file(const std::string& name) const { return m_strPath + "/" + name; }
    // Writes `text` to `name` inside the folder and returns its path.
    std::string write(const std::string& name, const std::string& text) const {
        const std::string p = file(name);
        std::ofstream(p, std::ios::binary | std::ios::trunc) << text;
        return p;
    }

private:
    std::string m_strPath;
};

}  // namespace test
}  // namespace ttservice
