#include "bmc/bittware/ipmi_serial.h"

#include "support/outcome.h"
#include <gmock/gmock.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <numeric>
#include <stdexcept>
#include <string>
#include <vector>

namespace ivra::bsp::bmc::bittware {
namespace {

using tests::said_by;

using bytes_t = std::vector<std::uint8_t>;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

/// A receive buffer that holds these bytes, and otherwise what it held before.
void put(frame_decoder::buffer_t& buffer, const bytes_t& bytes)
{
    std::copy(bytes.begin(), bytes.end(), buffer.begin());
}

/// Feeds pieces as they would be read, one after the other, into one buffer.
frame_decoder decoded(const std::vector<bytes_t>& pieces)
{
    frame_decoder::buffer_t buffer{};
    frame_decoder decoder;
    for (const bytes_t& piece : pieces) {
        put(buffer, piece);
        decoder.feed(buffer, piece.size());
    }
    return decoder;
}

TEST(ipmi_request, is_network_function_zero_command_and_data)
{
    EXPECT_EQ(encode_request(0x0A, 0x11, bytes_t{0, 8, 0, 6}), (bytes_t{0x28, 0, 0x11, 0, 8, 0, 6}));
    EXPECT_EQ(encode_request(0x2E, 0x08, {}), (bytes_t{0xB8, 0, 0x08}));
    EXPECT_EQ(encode_request(0xFF, 0x01, {}), (bytes_t{0xFC, 0, 0x01})) << "kept to 8 bits";
}

TEST(ipmi_frame, stands_between_start_and_stop_and_is_followed_by_zeros)
{
    EXPECT_EQ(encode_frame(bytes_t{0x28, 0x00, 0x11}), (bytes_t{0xA0, 0x28, 0x00, 0x11, 0xA5, 0, 0, 0}));
}

TEST(ipmi_frame, has_its_special_bytes_escaped_and_keeps_its_length)
{
    EXPECT_EQ(encode_frame(bytes_t{0xA0, 0xA5, 0xA6, 0xAA, 0x1B}),
              (bytes_t{0xA0, 0xAA, 0xB0, 0xAA, 0xB5, 0xAA, 0xB6, 0xAA, 0xBA, 0xAA, 0x3B, 0xA5}));
    EXPECT_EQ(encode_frame(bytes_t{0x10, 0x00, 0x21, 0xA6}),
              (bytes_t{0xA0, 0x10, 0x00, 0x21, 0xAA, 0xB6, 0xA5, 0, 0, 0}));
}

TEST(ipmi_frame, escapes_five_bytes_and_no_other)
{
    for (unsigned byte = 0; byte < 256; ++byte) {
        const auto raw = static_cast<std::uint8_t>(byte);
        const bytes_t frame = encode_frame(bytes_t{raw});
        const bool special = byte == 0xA0 || byte == 0xA5 || byte == 0xA6 || byte == 0xAA || byte == 0x1B;
        ASSERT_EQ(frame.size(), 4U);
        EXPECT_EQ(frame[1] == 0xAA && frame[3] == 0xA5, special) << byte;
        const frame_decoder decoder = decoded({frame});
        EXPECT_TRUE(decoder.complete());
        EXPECT_THAT(decoder.message(), ElementsAre(raw));
    }
}

TEST(ipmi_decoder, ignores_noise_before_the_start_byte)
{
    const frame_decoder decoder = decoded({{0x00, 0xA5, 0xAA, 0x12}, {0x99, 0xA0, 1, 2, 0xA5}});
    EXPECT_TRUE(decoder.complete());
    EXPECT_THAT(decoder.message(), ElementsAre(1, 2));
    EXPECT_THAT(decoder.invalid_escapes(), IsEmpty());
}

TEST(ipmi_decoder, keeps_a_second_start_byte_as_data)
{
    EXPECT_THAT(decoded({{0xA0, 1, 0xA0, 2, 0xA5}}).message(), ElementsAre(1, 0xA0, 2));
}

TEST(ipmi_decoder, reassembles_a_frame_from_pieces_of_any_size)
{
    bytes_t message(100);
    std::iota(message.begin(), message.end(), std::uint8_t{0x20}); // none of them special
    bytes_t frame{0xA0};
    frame.insert(frame.end(), message.begin(), message.end());
    frame.push_back(0xA5);
    for (std::size_t size = 1; size <= frame_decoder::buffer_size; ++size) {
        std::vector<bytes_t> pieces;
        for (std::size_t at = 0; at < frame.size(); at += size)
            pieces.emplace_back(frame.begin() + static_cast<std::ptrdiff_t>(at),
                                frame.begin() + static_cast<std::ptrdiff_t>(std::min(at + size, frame.size())));
        const frame_decoder decoder = decoded(pieces);
        EXPECT_TRUE(decoder.complete()) << size;
        EXPECT_EQ(decoder.message(), message) << size;
    }
}

TEST(ipmi_decoder, drops_what_follows_the_stop_byte)
{
    const frame_decoder decoder = decoded({{0xA0, 1, 0xA5, 2, 0xA0, 3, 0xA5}, {4, 5}});
    EXPECT_TRUE(decoder.complete());
    EXPECT_THAT(decoder.message(), ElementsAre(1));
}

TEST(ipmi_decoder, drops_an_escape_that_stands_for_nothing_and_goes_on)
{
    const frame_decoder decoder = decoded({{0xA0, 1, 0xAA, 0x00, 2, 0xAA, 0xA5, 3, 0xA5}});
    EXPECT_TRUE(decoder.complete());
    EXPECT_THAT(decoder.message(), ElementsAre(1, 2, 3));
    EXPECT_THAT(decoder.invalid_escapes(), ElementsAre(0x00, 0xA5));
}

TEST(ipmi_decoder, takes_the_second_half_of_a_split_escape_from_what_the_buffer_held_before)
{
    // The first read leaves 0xB5 behind the place where the second one ends.
    const frame_decoder decoder = decoded({{0xA0, 1, 0xB5, 0xB6}, {2, 0xAA}, {0xB0, 0xA5}});
    EXPECT_TRUE(decoder.complete());
    EXPECT_THAT(decoder.message(), ElementsAre(1, 0xB5, 0xB6, 2, 0xA5, 0xB0)) << "and its real half as it is";
}

TEST(ipmi_decoder, takes_the_second_half_of_a_split_escape_as_0_from_a_buffer_that_held_nothing)
{
    const frame_decoder decoder = decoded({{0xA0, 1, 0xAA}, {0xB0, 0xA5}});
    EXPECT_THAT(decoder.message(), ElementsAre(1, 0xB0));
    EXPECT_THAT(decoder.invalid_escapes(), ElementsAre(0x00));
}

TEST(ipmi_decoder, takes_an_escape_byte_at_the_end_of_the_buffer_as_followed_by_0)
{
    bytes_t full(frame_decoder::buffer_size, 0x11);
    full.front() = 0xA0;
    full.back() = 0xAA;
    const frame_decoder decoder = decoded({full, {0xB0, 0xA5}});
    EXPECT_TRUE(decoder.complete());
    EXPECT_EQ(decoder.message().size(), frame_decoder::buffer_size - 2 + 1);
    EXPECT_EQ(decoder.message().back(), 0xB0);
    EXPECT_THAT(decoder.invalid_escapes(), ElementsAre(0x00));
}

TEST(ipmi_decoder, believes_no_count_beyond_its_buffer)
{
    frame_decoder::buffer_t buffer;
    buffer.fill(0x11);
    buffer.front() = 0xA0;
    frame_decoder decoder;
    decoder.feed(buffer, 1000);
    EXPECT_FALSE(decoder.complete());
    EXPECT_EQ(decoder.message().size(), frame_decoder::buffer_size - 1);
}

/// What decode_response() says of a message to a request of network function 0x0A and command 0x11.
std::string refusal(const bytes_t& message)
{
    return said_by([&] { decode_response(message, 0x0A, 0x11); });
}

TEST(ipmi_response, has_a_completion_code_and_data)
{
    const ipmi_response_t response = decode_response(bytes_t{0x2C, 0x77, 0x11, 0xC9, 1, 2}, 0x0A, 0x11);
    EXPECT_EQ(response.code, 0xC9) << "returned, not raised";
    EXPECT_THAT(response.data, ElementsAre(1, 2));
}

TEST(ipmi_response, of_four_bytes_has_no_data)
{
    EXPECT_THAT(decode_response(bytes_t{0x2C, 0, 0x11, 0}, 0x0A, 0x11).data, IsEmpty());
}

TEST(ipmi_response, to_something_else_is_refused)
{
    EXPECT_EQ(refusal({}), "Invalid data read from BMC");
    EXPECT_EQ(refusal({0x2C, 0, 0x11}), "Invalid data read from BMC");
    EXPECT_EQ(refusal({0x28, 0, 0x11, 0}), "Invalid IPMI response net function");
    for (const std::uint8_t command : bytes_t{0x10, 0x12})
        EXPECT_EQ(refusal({0x2C, 0, command, 0}), "Invalid IPMI response command");
    EXPECT_EQ(refusal({0x2F, 0xFF, 0x11, 0}), "no failure") << "the two low bits and the second byte are ignored";
}

TEST(ipmi_response, to_the_last_network_function_has_the_first)
{
    // 0xFF + 1 is 0 in 8 bits, which is what byte 0 >> 2 has to be.
    EXPECT_EQ(decode_response(bytes_t{0x03, 0, 1, 0}, 0xFF, 1).code, 0);
}

/// Messages of the frames in these bytes.
std::vector<bytes_t> strictly_decoded(const bytes_t& bytes)
{
    strict_frame_decoder decoder;
    std::vector<bytes_t> messages;
    for (const std::uint8_t byte : bytes)
        if (decoder.feed(byte))
            messages.push_back(decoder.message());
    return messages;
}

TEST(strict_frame_decoder, finds_frames_as_the_standard_has_them)
{
    struct row_t
    {
        bytes_t bytes;
        std::vector<bytes_t> messages;
        const char* why;
    };
    const std::vector<row_t> rows{
        {{0xA0, 1, 2, 0xA5}, {{1, 2}}, "a frame"},
        {{1, 0xA5, 0xAA, 0xB0, 0xA6, 0xA0, 1, 0xA5, 2, 0xA5}, {{1}}, "what is outside is nothing"},
        {{0xA0, 1, 0xA5, 0xA0, 2, 0xA5}, {{1}, {2}}, "two frames"},
        {{0xA0, 0xA5}, {{}}, "an empty message"},
        {{0xA0, 0xAA, 0xB0, 0xAA, 0xB5, 0xAA, 0xB6, 0xAA, 0xBA, 0xAA, 0x3B, 0xA5},
         {{0xA0, 0xA5, 0xA6, 0xAA, 0x1B}},
         "every escape"},
        {{0xA0, 1, 2, 0xA0, 3, 0xA5}, {{3}}, "a start byte begins anew"},
        {{0xA0, 1, 0xAA, 0xA0, 3, 0xA5}, {{3}}, "after an escape byte, too"},
        {{0xA0, 1, 0xAA, 0x00, 2, 0xA5}, {}, "an invalid escape"},
        {{0xA0, 1, 0xAA, 0xAA, 2, 0xA5, 0xA0, 4, 0xA5}, {{4}}, "an invalid escape, and the next frame"},
        {{0xA0, 1, 0xAA, 0xA5, 2, 0xA5}, {}, "a stop byte is no escape"},
        {{0xA0, 1, 2}, {}, "no end"},
    };
    for (const row_t& row : rows)
        EXPECT_EQ(strictly_decoded(row.bytes), row.messages) << row.why;
}

} // namespace
} // namespace ivra::bsp::bmc::bittware
