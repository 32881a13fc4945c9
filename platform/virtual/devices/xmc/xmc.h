#ifndef IVRA_VIRTUAL_DEVICES_XMC_XMC_H
#define IVRA_VIRTUAL_DEVICES_XMC_XMC_H

#include "devices/device.h"
#include "devices/xmc/config.h"
#include "memory/register_file.h"

#include <optional>

namespace ivra::virtual_platform {

enum class xmc_phase_t
{
    in_reset,
    starting,
    ready
};

/// How far an XMC is. `core` is the one that it stands behind.
xmc_phase_t phase_of(const xmc_t& config, const core_t& core, const register_file& registers, device_time now);

/// The management controller of an Alveo card as its host sees it. It is held in reset until the host releases it,
/// then starts, and then measures and answers its mailbox.
class xmc final : public device
{
public:
    xmc(const xmc_t& config, const core_t& core, register_file& registers)
        : config_{config}, core_{core}, registers_{registers}
    {
    }

    std::uint32_t read(std::uint64_t offset, device_time now) override;
    void write(std::uint64_t offset, std::uint32_t value, device_time now) override;

private:
    struct row_t;
    static const row_t rows[];
    static const row_t* row_of(std::uint64_t offset);

    std::uint32_t status(device_time now) const;
    std::uint32_t error(device_time now) const;
    std::uint32_t message_offset(device_time now) const;
    std::uint32_t power_good(device_time now) const;
    void change_reset(std::uint32_t value, device_time now);
    void change_control(std::uint32_t value, device_time now);
    void keep_as_it_is(std::uint32_t value, device_time now);

    std::optional<std::uint32_t> sensor(std::uint64_t offset, device_time now) const;
    bool is_ready(device_time now) const;
    bool is_answer_due(device_time now) const;
    void answer();
    void send(const std::string& payload);

    std::uint32_t stored(std::uint64_t offset) const { return registers_.read(core_, offset); }
    void store(std::uint64_t offset, std::uint32_t value) { registers_.write(core_, offset, value); }

    const xmc_t& config_;
    const core_t& core_;
    register_file& registers_;
};

} // namespace ivra::virtual_platform

#endif
