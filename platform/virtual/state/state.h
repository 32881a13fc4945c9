#ifndef IVRA_VIRTUAL_STATE_H
#define IVRA_VIRTUAL_STATE_H

#include "devices/bmc/memory.h"
#include "memory/flash_memory.h"
#include "memory/mapped_file.h"
#include "memory/register_file.h"
#include "rack/changes.h"
#include "rack/rack.h"
#include "state/changes_file.h"

#include <cstddef>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace ivra::virtual_platform {

/// A file name for any text, another one for another text, and readable: "/" becomes "+", everything that is not plain
/// becomes "%" and two hexadecimal digits. It never begins with ".": such names are the state's own.
std::string file_name(std::string_view text);

/// Folder of every rack's state: IVRA_VIRTUAL_STATE, or "ivra-virtual" in the user's state folder (XDG_STATE_HOME, else
/// ~/.local/state). Nothing is created by asking. Throws std::system_error when there is no home to put it in.
std::filesystem::path state_root();

/// Folder of one rack's boards, named after the rack file's full path. Nothing is created by asking.
std::filesystem::path rack_state_folder(const std::filesystem::path& rack_file);

/// Folder of what one board remembers. Nothing is created by asking.
std::filesystem::path board_state_folder(const rack_t& rack, const accelerator_t& accelerator);

/// Folder of the files behind the mutexes that the processes of this host share. It is no board's, and is never
/// removed: two processes would hold one mutex.
std::filesystem::path mutex_folder();

/// Creates a folder and its parents for this user alone (mode 0700). Throws std::system_error.
void create_private_folder(const std::filesystem::path& folder);

/// What one board remembers: what was changed of it, the contents of its flash, the registers of its cores, the memory
/// of its BMC and what is on its I2C buses, in files that are mapped shared, so that every process that has the board
/// open sees the same bytes. It is released when the object goes.
class board_state
{
public:
    /// Opens what the board remembers. It is made from the rack when there is none, when the accelerator's text in the
    /// rack is not the one that it was made from, or when it is damaged. Any number of processes may do so at once.
    /// Throws std::system_error with the path.
    static board_state open(const rack_t& rack, const accelerator_t& accelerator);

    /// Opens what the board remembers for looking at it. Nothing when there is none, or none that open() would use.
    /// Throws std::system_error with the path.
    static std::optional<board_state> open_existing(const rack_t& rack, const accelerator_t& accelerator);

    /// Why open() threw away what the board remembered; empty when it did not.
    const std::string& restart_reason() const { return restart_reason_; }

    /// The board as it is now: as the rack says, and with what was changed of it, by whatever process. It is good until
    /// it is asked for again. Throws file_error when what was changed cannot be read.
    const accelerator_t& board()
    {
        return changes_.generation() == generation_ && !is_change_due() ? *board_ : read_board();
    }

    /// The same, and what is going to change.
    changes_t changes() const;

    /// Makes changes, for every process at once: all or, when it throws, none. `make` gets the board as it is and what
    /// is to come, and a number that no change before has, and returns the highest of such numbers, from that one on,
    /// that it has used. Throws std::system_error, file_error and what `make` throws.
    void change(const std::function<std::uint64_t(changes_t& changes, std::uint64_t number)>& make);
    /// Undoes all changes, whatever the file of them holds; false when there was none. Throws std::system_error.
    bool undo_changes();

    flash_memory& flash() { return flash_; }
    const flash_memory& flash() const { return flash_; }

    /// Registers of all cores; a core is one of the accelerator's.
    register_file& registers() { return registers_; }
    const register_file& registers() const { return registers_; }

    /// What its BMC remembers.
    bmc_file& bmc() { return bmc_; }

    /// What is on the buses of its I2C controllers, as places_of() says; the lock of the registers is for it, too.
    mapped_file& i2c() { return i2c_; }
    const mapped_file& i2c() const { return i2c_; }

    /// The parameters that the design read last, parameters_size bytes.
    mapped_file& parameters() { return parameters_; }
    const mapped_file& parameters() const { return parameters_; }
    static constexpr std::uint64_t parameters_size = 24;

private:
    board_state(const rack_t& rack, const accelerator_t& accelerator, changes_file changes, flash_memory flash,
                register_file registers, bmc_file bmc, mapped_file i2c, mapped_file parameters);
    bool is_change_due() const { return next_change_ && *next_change_ <= device_now(); }
    const accelerator_t& read_board();
    changes_t read_changes(const mapped_file& file) const;
    static std::optional<board_state> open_matching(const rack_t& rack, const accelerator_t& accelerator,
                                                    file_access access, std::string& mismatch);

    std::string restart_reason_;
    const accelerator_t* original_; ///< as the rack says it
    std::filesystem::path rack_file_;
    changes_file changes_;
    std::unique_ptr<const accelerator_t> changed_; ///< null: the original
    const accelerator_t* board_;                   ///< of these two the one that counts
    std::uint64_t generation_ = 0;                 ///< of the changes in it
    std::optional<device_time> next_change_;
    flash_memory flash_;
    register_file registers_;
    bmc_file bmc_;
    mapped_file i2c_;
    mapped_file parameters_;
};

/// Each forgets what is remembered, as a factory reset does, and tells whether there was anything. Processes that have
/// a board open keep what they opened. Throws std::system_error.
bool forget_board(const rack_t& rack, const accelerator_t& accelerator);
bool forget_rack(const std::filesystem::path& rack_file); ///< all boards of one rack; the file need not exist
bool forget_all();                                        ///< all boards of all racks

} // namespace ivra::virtual_platform

#endif
