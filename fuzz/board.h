#ifndef IVRA_FUZZ_BOARD_H
#define IVRA_FUZZ_BOARD_H

#include "hw/accelerator.h"
#include "hw/core.h"
#include "hw/mmio.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <optional>
#include <stdexcept>
#include <string>

#include <unistd.h>

/// The only board of a rack in a folder that goes with the process. The log is silent.
class board_t
{
public:
    explicit board_t(const std::string& model)
    {
        std::string folder = (std::filesystem::temp_directory_path() / "fuzz-board-XXXXXX").string();
        if (::mkdtemp(folder.data()) == nullptr)
            std::abort();
        folder_ = folder;
        std::ofstream{folder_ / "rack.json"} << R"({"accelerators": [{"model": ")" << model << R"("}]})";
        ::setenv("IVRA_VIRTUAL_RACK", (folder_ / "rack.json").c_str(), 1);
        ::setenv("IVRA_VIRTUAL_STATE", (folder_ / "state").c_str(), 1);
        ::setenv("IVRA_LOG_LEVEL", "0", 1);
        const ivra::hw::accelerator accelerator{ivra::hw::enumerate_accelerators().at(0)};
        const ivra::hw::mmio mmio{accelerator.enumerate_mmios().at(0)};
        root_ = ivra::hw::enumerate_cores(mmio).root();
    }
    ~board_t() { std::filesystem::remove_all(folder_); }
    board_t(const board_t&) = delete;
    board_t& operator=(const board_t&) = delete;

    const ivra::hw::core& root() const { return *root_; }

private:
    std::filesystem::path folder_;
    std::optional<ivra::hw::core> root_;
};

/// Runs a step; what it throws for bytes that make no sense is well.
template <class Step>
void attempt(Step step)
{
    try {
        step();
    } catch (const std::runtime_error&) {
    }
}

#endif
