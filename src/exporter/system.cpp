#include "exporter/system.h"

#include <unistd.h>

#include <system_error>
#include <utility>

namespace ivra::bsp::exporter {

descriptor_t& descriptor_t::operator=(descriptor_t&& other) noexcept
{
    std::swap(number_, other.number_);
    return *this;
}

void descriptor_t::close()
{
    if (number_ != -1)
        ::close(number_);
    number_ = -1;
}

void fail(const std::string& what, int error)
{
    throw std::system_error{error, std::generic_category(), what};
}

} // namespace ivra::bsp::exporter
