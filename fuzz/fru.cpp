// The FRU of a Bittware board, read as its serial number is: the fuzzer plays the BMC, with an EEPROM and with a BMC
// that answers anything.

#include "bmc/bittware/fru.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <numeric>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

using namespace ivra::bsp::bmc::bittware;

namespace {

using bytes_t = std::vector<std::uint8_t>;

constexpr std::uint8_t mend_sums = 1;     // otherwise hardly an input gets as far as the fields
constexpr std::uint8_t answer_wildly = 2; // with code, count byte and length out of the input

/// Makes `size` bytes of the image from `offset` on add up to 0, if they are there, by the last of them.
void mend(bytes_t& image, std::size_t offset, std::size_t size)
{
    if (size == 0 || offset + size > image.size())
        return;
    const auto begin = image.begin() + static_cast<std::ptrdiff_t>(offset);
    const auto end = begin + static_cast<std::ptrdiff_t>(size);
    *(end - 1) = static_cast<std::uint8_t>(*(end - 1) - std::accumulate(begin, end, 0U));
}

class bmc
{
public:
    bmc(bytes_t image, bool wild) : image_{std::move(image)}, wild_{wild} {}

    bytes_t read(fru_range_t range)
    {
        const auto request = encode_read_fru_data(range);
        const std::size_t offset = request[1] + 256U * request[2];
        const std::size_t begin = std::min(offset, image_.size());
        bytes_t reply{range.count};
        std::uint8_t code = 0;
        std::size_t size = range.count;
        if (wild_) {
            code = next() < 0xF0 ? 0 : next();
            reply[0] = next();
            size += next();
            if (next() == 0)
                reply.clear();
        }
        size = std::min(size, image_.size() - begin);
        const auto from = image_.begin() + static_cast<std::ptrdiff_t>(begin);
        reply.insert(reply.end(), from, from + static_cast<std::ptrdiff_t>(size));
        const auto bytes = decode_fru_data(code, reply, range.count);
        if (code != 0 || bytes.size() < range.count || bytes.size() >= reply.size())
            std::abort();
        return {bytes.begin(), bytes.end()};
    }

private:
    std::uint8_t next() { return at_ < image_.size() ? image_[at_++] : 1; }

    bytes_t image_;
    bool wild_;
    std::size_t at_ = 0;
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    if (size == 0)
        return 0;
    const std::uint8_t how = data[0];
    bytes_t image(data + 1, data + size);
    if ((how & mend_sums) != 0) {
        mend(image, 0, 8);
        const std::size_t area = image.size() < 8 ? 0 : 8U * image[3];
        if (area != 0 && area + 1 < image.size())
            mend(image, area, 8U * image[area + 1]);
    }
    bmc board{image, (how & answer_wildly) != 0};
    try {
        const fru_range_t place = find_board_area_start(board.read(fru_common_header));
        const bytes_t start = board.read(place);
        const fru_range_t rest = find_board_area_rest(place, start);
        if (rest.offset != place.offset + 6 || rest.count < 2 || rest.count > 250)
            std::abort();
        const std::string serial = decode_board_serial(start, board.read(rest));
        if (serial.size() > 63 || serial.size() + 3 > rest.count)
            std::abort();
    } catch (const std::runtime_error&) {
        // What a decoder does with bytes that make no sense.
    }
    return 0;
}
