// What a MAC EEPROM holds: an address, or one of the errors.

#include "board/bittware.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <stdexcept>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const std::string text{data, data + size};
    try {
        ivra::bsp::board::decode_eeprom_mac({data, size});
        if (size != 21 || !text.starts_with("MAC="))
            std::abort();
    } catch (const ivra::bsp::board::unexpected_field& error) {
        if (error.message() != "Unexpected field read from MAC EEPROM: " + text)
            std::abort();
    } catch (const std::runtime_error&) {
    }
    return 0;
}
