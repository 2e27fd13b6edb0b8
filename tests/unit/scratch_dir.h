// A private temporary folder for one test, removed with everything in it.
#pragma once

#include <filesystem>
#include <fstream>
#include <random>
#include <sstream>
#include <string>

struct scratch_dir {
    std::filesystem::path dir;

    scratch_dir() {
        std::random_device random;
        do {
            dir = std::filesystem::temp_directory_path() /
                  ("tolmek_test_" + std::to_string(random()));
        } while (!std::filesystem::create_directory(dir));
    }
    ~scratch_dir() { std::filesystem::remove_all(dir); }
    scratch_dir(const scratch_dir &) = delete;
    scratch_dir &operator=(const scratch_dir &) = delete;

    std::u16string path(const std::string &name) const { return (dir / name).u16string(); }
    std::string read(const std::string &name) const {
        std::ifstream in(dir / name, std::ios::binary);
        std::stringstream text;
        text << in.rdbuf();
        return text.str();
    }
    void write(const std::string &name, const std::string &bytes, bool executable = false) const {
        std::filesystem::create_directories((dir / name).parent_path());
        std::ofstream(dir / name, std::ios::binary) << bytes;
        if (executable)
            std::filesystem::permissions(dir / name, std::filesystem::perms::owner_all,
                                         std::filesystem::perm_options::replace);
    }
};
