#ifndef IVRA_VIRTUAL_RACK_MODEL_H
#define IVRA_VIRTUAL_RACK_MODEL_H

#include "rack/rack.h"

#include <cstddef>
#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace ivra::virtual_platform {

/// What a board has when its rack does not say: what a file models/NAME.json says over defaults that depend on the
/// board. A board whose model has no file gets what stands here.
struct model_t
{
    std::string board;          ///< name that its design reports
    std::size_t position = 0;   ///< of the board in its rack: no two share a name, a serial number or a MAC address
    std::size_t xmc_number = 0; ///< which of the board's XMCs `xmc` is

    bool has_file = false;
    std::string short_name = "board"; ///< in default names: "virtual-u200-0"
    std::string number = "0000";      ///< in default serial numbers
    std::string device = "xcvu9p-flgb2104-2-e";
    double temperature = 40;
    std::size_t mac_count = 1;
    flash_t flash = default_flash();
    std::optional<i2c_t> i2c;       ///< with all cages that there can be; nothing: its design has none
    std::size_t optional_cages = 0; ///< the last ones, which are there when a rack says more than the others
    std::optional<bmc_t> bmc;
    std::optional<xmc_t> xmc;
};

/// The models of a rack, each file opened once: looked for beside the rack, and then with the racks that come with the
/// platform.
class models
{
public:
    /// `node` names the model, and is where a mistake in its file is noted.
    model_t read(const json::node_t& node, const std::string& name, std::size_t position, std::size_t xmc_number = 0);
    /// The text of its file, if that lies beside the rack, and what tells the files apart that it names.
    const std::string& text(const std::string& name) { return files_[name].text; }

private:
    struct file_t
    {
        std::filesystem::path path; ///< empty: there is none that could be used
        json::value_t document;
        std::string text;
    };
    static void open(const json::node_t& node, const std::string& name, file_t& file);

    std::map<std::string, file_t> files_;
};

/// Whether a model's file would have this path: it lies in a folder "models".
bool is_model_file(const std::filesystem::path& file);
/// Reads a model by itself; what is no mistake and hardly meant comes back as lines. Throws file_error.
std::vector<std::string> check_model(const std::filesystem::path& file);

/// The names of the models that come with the platform, sorted.
std::vector<std::string> known_models();

/// An accelerator of a model as it is when its rack says no more; but for the uid, and what follows from its cores.
accelerator_t default_accelerator(const model_t& model);
std::string default_uid(std::size_t position);
xmc_t default_xmc(const model_t& model);
std::vector<core_t> default_cores(bool i2c, bool uart, std::size_t xmcs);

/// The buses of the model with so many cages: the others are not there, nor is a multiplexer with nothing behind it.
std::vector<i2c_bus_t> default_buses(const model_t& model, std::size_t cages);
/// How many cages the model has at least, and at most.
std::size_t fewest_cages(const model_t& model);
std::size_t most_cages(const model_t& model);

/// `count` consecutive addresses from `first` on; they do not pass ff:ff:ff:ff:ff:ff.
std::vector<std::array<std::uint8_t, 6>> consecutive_mac_addresses(const std::array<std::uint8_t, 6>& first,
                                                                   std::size_t count);
/// Whether these are one or more addresses, each one more than the address before it.
bool are_consecutive(const std::vector<std::array<std::uint8_t, 6>>& addresses);

} // namespace ivra::virtual_platform

#endif
