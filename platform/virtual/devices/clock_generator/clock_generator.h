#ifndef IVRA_VIRTUAL_DEVICES_CLOCK_GENERATOR_H
#define IVRA_VIRTUAL_DEVICES_CLOCK_GENERATOR_H

#include "memory/clock.h"
#include "memory/mapped_file.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace ivra::virtual_platform {

/// Bytes that a clock generator keeps: its state, and 16 pages of registers.
inline constexpr std::size_t clock_state_size = 1024;
inline constexpr std::size_t clock_pages = 16;
inline constexpr std::size_t clock_memory_size = clock_state_size + clock_pages * 256;

inline constexpr std::size_t clock_outputs = 4;

/// What a clock generator does.
struct clock_status_t
{
    bool is_running = false;
    std::string text;                               ///< for people
    std::array<std::string, clock_outputs> outputs; ///< "161.1328125 MHz", or why it is off
};

/// The clock generator of Alveo U5x cards: registers of 16-bit addresses, whose page register 0x01 of every page
/// selects. Its outputs run after a complete load: a preamble, registers, a postamble, with pauses. What goes wrong on
/// the way stays until the next preamble.
class clock_generator
{
public:
    /// Reads its memory, which is at `place`. Throws std::system_error.
    clock_generator(const mapped_file& file, std::uint64_t place);

    /// Begins a transfer that writes so many registers. It comes before write().
    void begin_write(std::size_t count, device_time now);
    void write(std::uint8_t at, std::uint8_t value);
    std::uint8_t read(std::uint8_t at) const;

    clock_status_t status() const;

    /// Its memory but for the first byte, which is its address counter. Throws std::system_error.
    void store(mapped_file& file, std::uint64_t place) const;

private:
    struct step_t;
    static const step_t steps[];

    unsigned reg(unsigned address) const { return memory_.at(clock_state_size + address); }
    std::uint64_t number(unsigned address, unsigned bytes) const;
    std::uint8_t& phase();
    void found(std::uint8_t mistake);
    void advance(unsigned address, std::uint8_t value);
    bool is_written(unsigned address) const;
    bool is_complete() const;
    std::int64_t time(std::size_t at) const;
    void set_time(std::size_t at, device_time now);
    std::string output_text(std::size_t output) const;

    std::vector<std::uint8_t> memory_;
};

} // namespace ivra::virtual_platform

#endif
