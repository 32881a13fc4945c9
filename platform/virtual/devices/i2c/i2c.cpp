#include "devices/i2c/i2c.h"

#include "devices/clock_generator/clock_generator.h"
#include "devices/module/module.h"

#include <algorithm>
#include <array>
#include <bit>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace ivra::virtual_platform {

namespace {

constexpr std::uint8_t module_address = 0x50;
constexpr std::uint8_t diagnostics_address = 0x51;

/// What answers at an address.
class i2c_target
{
public:
    virtual ~i2c_target() = default;
    virtual void write(std::span<const std::uint8_t> bytes, device_time now) = 0;
    virtual void read(std::span<std::uint8_t> bytes) = 0;
};

std::uint8_t stored_byte(const mapped_file& file, std::uint64_t place)
{
    std::array<std::uint8_t, 1> byte{};
    file.read(place, byte);
    return byte[0];
}

void store_byte(mapped_file& file, std::uint64_t place, std::uint8_t value)
{
    file.write(place, std::array{value});
}

/// A switch: the last byte that it is written is the mask of channels that are on.
class multiplexer_target final : public i2c_target
{
public:
    multiplexer_target(mapped_file& file, std::uint64_t place) : file_{file}, place_{place} {}

    void write(std::span<const std::uint8_t> bytes, device_time) override
    {
        if (!bytes.empty())
            store_byte(file_, place_, bytes.back());
    }

    void read(std::span<std::uint8_t> bytes) override { std::ranges::fill(bytes, stored_byte(file_, place_)); }

private:
    mapped_file& file_;
    std::uint64_t place_;
};

/// Memory of 256 bytes behind an address counter that the first byte written sets.
class memory_target : public i2c_target
{
public:
    memory_target(mapped_file& file, std::uint64_t counter) : file_{file}, counter_{counter} {}

    void write(std::span<const std::uint8_t> bytes, device_time now) final
    {
        if (bytes.empty())
            return;
        std::uint8_t at = bytes.front();
        begin_write(bytes.size() - 1, now);
        for (const std::uint8_t byte : bytes.subspan(1))
            write_byte(at++, byte);
        store_byte(file_, counter_, at);
    }

    void read(std::span<std::uint8_t> bytes) final
    {
        std::uint8_t at = stored_byte(file_, counter_);
        for (std::uint8_t& byte : bytes)
            byte = read_byte(at++);
        store_byte(file_, counter_, at);
    }

protected:
    virtual void begin_write(std::size_t, device_time) {}
    virtual void write_byte(std::uint8_t at, std::uint8_t value) = 0;
    virtual std::uint8_t read_byte(std::uint8_t at) = 0;

private:
    mapped_file& file_;
    std::uint64_t counter_;
};

/// It is write-protected.
class eeprom_target final : public memory_target
{
public:
    eeprom_target(mapped_file& file, std::uint64_t counter, const std::string& contents)
        : memory_target{file, counter}, contents_{contents}
    {
    }

private:
    void write_byte(std::uint8_t, std::uint8_t) override {}
    std::uint8_t read_byte(std::uint8_t at) override
    {
        return at < contents_.size() ? static_cast<std::uint8_t>(contents_[at]) : 0xff;
    }

    const std::string& contents_;
};

/// Bytes that are remembered of what is in a cage: the address counters, and what the host can write.
using cage_bytes_t = std::array<std::uint8_t, cage_size - cage_counters>;

constexpr std::size_t host_bytes_at = cage_written - cage_counters;

/// Those of the module that is in it now; nothing when they are of another one.
std::optional<cage_bytes_t> remembered_bytes(const cage_t& cage, std::uint64_t place, const mapped_file& file)
{
    std::array<std::uint8_t, cage_size> all{};
    file.read(place, all);
    std::array<std::uint8_t, cage_counters> owner{};
    std::copy_n(all.begin(), owner.size(), owner.begin());
    if (std::bit_cast<std::uint64_t>(owner) != cage.plugged + 1)
        return std::nullopt;
    cage_bytes_t bytes{};
    std::copy_n(all.begin() + cage_counters, bytes.size(), bytes.begin());
    return bytes;
}

/// The module in a cage as the host has left it.
module_t remembered_module(const cage_t& cage, const std::optional<cage_bytes_t>& bytes)
{
    module_t module = cage.module.value();
    if (bytes)
        set_writable_bytes(module, std::span{*bytes}.subspan(host_bytes_at));
    return module;
}

/// The same for its use: from now on it is remembered what the host does to it. That it counts is told last: a process
/// that is killed on the way leaves a module that nobody has touched.
module_t used_module(const cage_t& cage, std::uint64_t place, mapped_file& file)
{
    using owner_t = std::array<std::uint8_t, cage_counters>;
    const auto bytes = remembered_bytes(cage, place, file);
    if (!bytes) {
        cage_bytes_t first{};
        std::ranges::copy(writable_bytes(cage.module.value()), first.begin() + host_bytes_at);
        file.write(place, owner_t{});
        file.write(place + cage_counters, first);
        file.write(place, std::bit_cast<owner_t>(cage.plugged + 1));
    }
    return remembered_module(cage, bytes);
}

/// One address of a module.
class module_target final : public memory_target
{
public:
    module_target(const cage_t& cage, std::uint64_t place, bool is_second_device, mapped_file& file)
        : memory_target{file, place + cage_counters + (is_second_device ? 1U : 0U)}, file_{file},
          written_{place + cage_written}, plugged_{*cage.module}, module_{used_module(cage, place, file)},
          is_second_device_{is_second_device}
    {
    }

private:
    void write_byte(std::uint8_t at, std::uint8_t value) override
    {
        const std::size_t place = place_of(module_, is_second_device_, at);
        const std::optional<std::uint8_t> written = written_byte(module_, place, value);
        if (!written)
            return;
        store_byte(file_, written_ + writable_index(module_, place), *written);
        module_.set_byte(place, *written);
    }

    std::uint8_t read_byte(std::uint8_t at) override
    {
        return visible_byte(module_, plugged_, place_of(module_, is_second_device_, at));
    }

    mapped_file& file_;
    std::uint64_t written_;
    const module_t& plugged_; ///< as it was
    module_t module_;
    bool is_second_device_;
};

class clock_target final : public memory_target
{
public:
    clock_target(mapped_file& file, std::uint64_t place)
        : memory_target{file, place}, file_{file}, place_{place}, clock_{file, place}
    {
    }

private:
    void begin_write(std::size_t count, device_time now) override { clock_.begin_write(count, now); }
    void write_byte(std::uint8_t at, std::uint8_t value) override
    {
        clock_.write(at, value);
        clock_.store(file_, place_);
    }
    std::uint8_t read_byte(std::uint8_t at) override { return clock_.read(at); }

    mapped_file& file_;
    std::uint64_t place_;
    class clock_generator clock_; // not the kind of that name
};

/// The module in a cage, when it has something at an address.
std::unique_ptr<i2c_target> module_at(const cage_t& cage, std::uint64_t place, std::uint8_t address, mapped_file& file)
{
    const std::optional<module_t>& module = cage.module;
    const bool is_second_device = address == diagnostics_address;
    if (!module || (address != module_address && !is_second_device))
        return nullptr;
    if (is_second_device && (module->map != memory_map_t::sfp || !module->has_block(a2(0) / block_size)))
        return nullptr;
    return std::make_unique<module_target>(cage, place, is_second_device, file);
}

/// A device that is there at an address; null: it does not answer.
std::unique_ptr<i2c_target> target_of(const i2c_t& i2c, const i2c_device_t& device, std::uint8_t address,
                                      mapped_file& file)
{
    const i2c_places_t places = places_of(i2c);
    if (device.kind != i2c_kind_t::cage && device.address != address)
        return nullptr;
    switch (device.kind) {
    case i2c_kind_t::multiplexer:
        return std::make_unique<multiplexer_target>(file, places.multiplexers + device.number);
    case i2c_kind_t::mac_eeprom:
        if (i2c.mac_eeprom)
            return std::make_unique<eeprom_target>(file, places.eeprom, *i2c.mac_eeprom);
        break;
    case i2c_kind_t::cage:
        return module_at(i2c.cages.at(device.number), places.cages.at(device.number), address, file);
    case i2c_kind_t::clock_generator:
        return std::make_unique<clock_target>(file, places.clock);
    }
    return nullptr;
}

bool is_empty_cage(const i2c_t& i2c, const i2c_device_t& device, std::uint8_t address)
{
    if (device.kind != i2c_kind_t::cage || (address != module_address && address != diagnostics_address))
        return false;
    const cage_t& cage = i2c.cages.at(device.number);
    return !cage.module && cage.acknowledges;
}

} // namespace

module_t remembered(const i2c_t& i2c, std::size_t cage, const mapped_file& file)
{
    const cage_t& of = i2c.cages.at(cage);
    return remembered_module(of, remembered_bytes(of, places_of(i2c).cages.at(cage), file));
}

std::uint32_t control_pins(const i2c_t& i2c, const mapped_file& file)
{
    std::array<std::uint8_t, 4> bytes{};
    file.read(places_of(i2c).pins, bytes);
    std::uint32_t pins = 0;
    for (std::size_t at = 0; at < bytes.size(); ++at)
        pins |= std::uint32_t{bytes.at(at)} << 8U * at;
    return pins;
}

void set_control_pins(const i2c_t& i2c, mapped_file& file, std::uint32_t pins)
{
    if (i2c.pins < most_i2c_pins)
        pins &= (1U << i2c.pins) - 1;
    std::array<std::uint8_t, 4> bytes{};
    for (std::size_t at = 0; at < bytes.size(); ++at)
        bytes.at(at) = static_cast<std::uint8_t>(pins >> 8U * at);
    file.write(places_of(i2c).pins, bytes);
}

bool i2c_bus::is_reachable(const i2c_device_t& device) const
{
    if (device.pin && (control_pins(i2c_, file_) >> *device.pin & 1U) == 0)
        return false;
    if (!device.behind)
        return true;
    const i2c_device_t& multiplexer = multiplexer_of(bus_, *device.behind);
    const std::uint8_t channels = stored_byte(file_, places_of(i2c_).multiplexers + multiplexer.number);
    return (channels & device.behind->channels) != 0 && is_reachable(multiplexer);
}

std::size_t i2c_bus::transfer(std::uint8_t address, std::span<const std::uint8_t> written, std::span<std::uint8_t> read,
                              device_time now)
{
    std::vector<std::unique_ptr<i2c_target>> targets;
    bool is_empty_cage_there = false;
    for (const i2c_device_t& device : bus_.devices) {
        if (!is_reachable(device))
            continue;
        if (auto target = target_of(i2c_, device, address, file_))
            targets.push_back(std::move(target));
        is_empty_cage_there = is_empty_cage_there || is_empty_cage(i2c_, device, address);
    }
    if (targets.empty() && !is_empty_cage_there)
        return 0;
    std::ranges::fill(read, std::uint8_t{0xff});
    std::vector<std::uint8_t> bytes(read.size());
    for (const auto& target : targets)
        target->write(written, now);
    for (const auto& target : targets) {
        target->read(bytes);
        std::ranges::transform(read, bytes, read.begin(),
                               [](unsigned one, unsigned other) { return static_cast<std::uint8_t>(one & other); });
    }
    return std::max<std::size_t>(targets.size(), 1);
}

} // namespace ivra::virtual_platform
