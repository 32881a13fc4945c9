#ifndef IVRA_VIRTUAL_RACK_H
#define IVRA_VIRTUAL_RACK_H

#include "devices/bmc/config.h"
#include "devices/i2c/config.h"
#include "devices/xmc/config.h"
#include "memory/register_file.h"
#include "json/document.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace ivra::virtual_platform {

/// What the FPGA and its design say of themselves.
struct fpga_t
{
    std::string device;                    ///< device id, such as "xcu200-fsgd2104-2-e"
    std::array<std::uint32_t, 3> serial{}; ///< 96-bit identifier, least significant word first
    double temperature = 0;                ///< of the die, in degrees Celsius

    bool operator==(const fpga_t&) const = default;
};

/// One section of the configuration flash.
struct flash_section_t
{
    std::optional<std::string> name; ///< a section may have none
    std::uint64_t start = 0;         ///< bytes from the start of the flash
    std::uint64_t size = 0;          ///< bytes
    bool write_protected = false;

    bool operator==(const flash_section_t&) const = default;
};

/// The configuration flash; sections are in address order and lie within `size`.
struct flash_t
{
    std::uint64_t size = 0;   ///< bytes
    std::uint64_t sector = 0; ///< bytes that are erased together
    std::vector<flash_section_t> sections;

    bool operator==(const flash_t&) const = default;
};

/// 128 MiB with an image, two parameter sections and one to be written once.
flash_t default_flash();

extern template struct json::codec::record<flash_t>;

inline constexpr json::codec::record<flash_t> flash_codec{
    R"(the flash: { "size": ..., "sector": ..., "sections": [ ... ] })"};

/// Hardware identifiers of the cores that the platform libraries look up by themselves.
namespace hardware_ids {
inline constexpr std::uint32_t hw_top = 1;
inline constexpr std::uint32_t flash = 16;
inline constexpr std::uint32_t i2c = 32;
inline constexpr std::uint32_t uart = 48;
inline constexpr std::uint32_t xmc = 475; ///< register window of an Alveo card's management controller
} // namespace hardware_ids

/// One accelerator of the rack, every default filled in.
struct accelerator_t
{
    std::optional<std::string> name; ///< an accelerator may have none
    std::string model;               ///< what it has by default, see model.h
    std::string board;               ///< name that its design reports
    std::string uid;                 ///< no other accelerator of the rack has it
    std::size_t position = 0;        ///< in the rack; defaults depend on it
    int open_error = 0;              ///< errno with which opening it fails; 0: it opens
    fpga_t fpga;
    std::vector<std::array<std::uint8_t, 6>> mac_addresses;
    flash_t flash;
    std::uint32_t mmios = 1;   ///< MMIO spaces; the first holds the cores, the others are empty
    std::vector<core_t> cores; ///< below the root of the first space, in address order
    std::optional<bmc_t> bmc;  ///< behind the first UART; nothing when there is no UART
    std::vector<xmc_t> xmcs;   ///< behind the cores that have room for one, in address order
    i2c_t i2c;                 ///< what is on the buses of its I2C controllers; nothing when there is none
    std::string text; ///< this accelerator in the rack file, as compact JSON, and the files it names: what its state
                      ///< started from

    bool operator==(const accelerator_t&) const = default;
};

/// Whether an XMC stands behind a core: it has the hardware identifier and the room. A smaller one is registers only.
bool has_room_for_xmc(const core_t& core);

/// The XMC behind a core of the accelerator; null when there is none.
const xmc_t* xmc_behind(const accelerator_t& accelerator, const core_t& core);

/// The BMC behind a core of the accelerator; null when there is none.
const bmc_t* bmc_behind(const accelerator_t& accelerator, const core_t& core);

/// A host's accelerators, in index order.
struct rack_t
{
    std::filesystem::path file; ///< absolute, symbolic links resolved
    std::vector<accelerator_t> accelerators;
};

/// The accelerator of the rack with this name, uid or index. Throws std::runtime_error, which says what there is.
const accelerator_t& accelerator_called(const rack_t& rack, const std::string& name);

/// An error with which a rack can make the opening of an accelerator fail; null when a rack has no name for it.
const char* open_error_name(int number);

/// The folder of the racks that come with the platform; it lies beside the libraries and programs.
const std::filesystem::path& racks_folder();

/// The rack that the platform libraries use: IVRA_VIRTUAL_RACK, or the showcase rack that lies beside them.
std::filesystem::path rack_in_use();

/// Reads and checks a rack file. Throws file_error for the first mistake found.
rack_t load_rack(const std::filesystem::path& file);

/// The same for a text that is in memory already; `file` names it in errors and becomes rack_t::file as it is.
rack_t parse_rack(std::string_view text, const std::filesystem::path& file);
/// The same for a document that has been parsed. Into `remarks`, unless it is null, come lines about what is no mistake
/// and hardly meant, in the order of the file.
rack_t read_rack(const json::value_t& document, const std::filesystem::path& file,
                 std::vector<std::string>* remarks = nullptr);

/// The folders in which the files are that a rack names, one after the other.
std::vector<std::filesystem::path> folders_of(const std::filesystem::path& rack_file);

/// A rack file that says everything about `rack`, defaults included, and loads to the same accelerators.
std::string expand(const rack_t& rack);

/// So many boards of models of the platform in turn, of which nothing else is said.
std::vector<accelerator_t> default_boards(const std::vector<std::string>& models, std::size_t count);

/// A rack file to start from: a board of each of `models`, over and over until there are `count`. It says what people
/// change and leaves the rest to defaults. `module` is in the first cage of each.
std::string starter(const std::vector<std::string>& models, std::size_t count,
                    const std::optional<module_t>& module = std::nullopt);

/// The JSON Schema of racks.
json::value_t rack_schema();

/// What a rack is, for people.
extern const char* const rack_sentence;

} // namespace ivra::virtual_platform

#endif
