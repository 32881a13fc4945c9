#include "board/bittware.h"

#include <stdexcept>

namespace ivra::bsp::board {

namespace {

/// Deliberate: one sentence for everything that needs the BMC, spelt like this.
[[noreturn]] void throw_not_initialized()
{
    throw std::runtime_error{"Could not set/get boot image as Bittware BMC subsustem is not initialized."};
}

} // namespace

std::optional<std::string> bittware::get_serial()
{
    throw_not_initialized();
}

sensors_t bittware::get_sensors()
{
    throw_not_initialized();
}

boot_image_t bittware::get_boot_image()
{
    throw_not_initialized();
}

boot_image_t bittware::get_current_boot_image()
{
    throw_not_initialized();
}

void bittware::set_boot_image(boot_image_t)
{
    throw_not_initialized();
}

} // namespace ivra::bsp::board
