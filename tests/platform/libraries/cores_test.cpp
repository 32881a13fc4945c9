#include "story.h"

#include <array>

namespace ivra::platform_tests {

namespace {

class cores : public host
{
};

TEST_F(cores, of_one_hardware_id_come_in_address_order_and_as_many_as_fit)
{
    run([] {
        const opened board;
        std::array<ivra_hw_core*, 3> found{};
        EXPECT_EQ(ivra_hw_core_enumerate(board.root, 475, found.data(), found.size()), 2);
        EXPECT_EQ(found[2], nullptr);
        EXPECT_EQ(read_word(found[0], 0x10), 0x89abcdefU) << "the one at 0x10000";
        EXPECT_EQ(read_word(found[1], 0x10), 2U) << "the one at 0x20000";
        std::array<ivra_hw_core*, 2> one{};
        EXPECT_EQ(ivra_hw_core_enumerate(board.root, 475, one.data(), 1), 1);
        EXPECT_EQ(one[0], found[0]);
        EXPECT_EQ(one[1], nullptr);
        EXPECT_EQ(ivra_hw_core_enumerate(board.root, 476, one.data(), 1), 0);
        EXPECT_EQ(ivra_hw_core_enumerate(found[0], 475, one.data(), 1), 0) << "nothing is below it";
    });
}

TEST_F(cores, registers_that_the_rack_does_not_mention_are_0)
{
    run([] {
        const opened board;
        EXPECT_EQ(read_word(board.core(475), 0), 0U);
        EXPECT_EQ(read_word(board.core(475), 0xfc), 0U);
    });
}

TEST_F(cores, fields_are_read_from_any_bit_over_word_borders)
{
    // 0x10: 89abcdef, 0x14: 01234567, 0x18: 00000000
    struct
    {
        ivra_hw_register_description field;
        std::uint64_t value;
        const char* why;
    } const rows[] = {
        {{0x10, 0, 32, "word"}, 0x89abcdef, "a word"},
        {{0x10, 0, 1, nullptr}, 1, "the lowest bit; no name"},
        {{0x10, 4, 8, "byte"}, 0xde, "within a word"},
        {{0x10, 31, 1, "top"}, 1, "the highest bit"},
        {{0x10, 0, 64, "both"}, 0x0123456789abcdef, "two words, the lower one first"},
        {{0x10, 28, 8, "border"}, 0x78, "over a border"},
        {{0x10, 4, 64, "three"}, 0x00123456789abcde, "from three words"},
        {{0x10, 32, 32, "next"}, 0x01234567, "a bit offset of a whole word"},
        {{0x10, 36, 12, "beyond"}, 0x456, "a bit offset beyond a word"},
        {{0xf8, 0, 64, "last"}, 0, "up to the end of the space"},
    };
    run([&] {
        const opened board;
        for (const auto& row : rows) {
            std::uint64_t value = 99;
            EXPECT_EQ(ivra_hw_read(board.core(475), &row.field, &value), 0) << row.why;
            EXPECT_EQ(value, row.value) << row.why;
        }
    });
}

TEST_F(cores, writing_a_field_keeps_the_bits_beside_it)
{
    run([] {
        const opened board;
        ivra_hw_core* core = board.core(475);
        const auto write = [&](std::uint64_t offset, std::uint32_t bit, std::uint32_t width, std::uint64_t value) {
            const ivra_hw_register_description field{offset, bit, width, "field"};
            EXPECT_EQ(ivra_hw_write(core, &field, value), 0);
        };
        write(0x10, 4, 8, 0x12);
        EXPECT_EQ(read_word(core, 0x10), 0x89abc12fU);
        write(0x10, 28, 8, 0xa5);
        EXPECT_EQ(read_word(core, 0x10), 0x59abc12fU);
        EXPECT_EQ(read_word(core, 0x14), 0x0123456aU);
        write(0x10, 4, 64, ~std::uint64_t{0});
        EXPECT_EQ(read_word(core, 0x10), 0xffffffffU);
        EXPECT_EQ(read_word(core, 0x14), 0xffffffffU);
        EXPECT_EQ(read_word(core, 0x18), 0x0000000fU);
        EXPECT_EQ(read_word(board.core(475, 1), 0x10), 2U) << "another core is not touched";
    });
}

TEST_F(cores, fields_that_are_none_are_EINVAL_and_those_outside_of_the_space_ERANGE)
{
    struct
    {
        ivra_hw_register_description field;
        int error;
    } const rows[] = {
        {{0x10, 0, 0, "no bits"}, EINVAL},
        {{0x10, 0, 65, "too wide"}, EINVAL},
        {{0x11, 0, 32, "unaligned"}, EINVAL},
        {{0x12, 0, 8, "unaligned"}, EINVAL},
        {{0x100, 0, 32, "behind the end"}, ERANGE},
        {{0xfc, 1, 32, "over the end"}, ERANGE},
        {{0xfc, 32, 1, "over the end"}, ERANGE},
        {{~std::uint64_t{3}, 0, 32, "far away"}, ERANGE},
        {{0, ~std::uint32_t{0}, 64, "far away"}, ERANGE},
        {{~std::uint64_t{3}, ~std::uint32_t{0}, 64, "no sum that wraps"}, ERANGE},
    };
    run([&] {
        const opened board;
        for (const auto& row : rows) {
            std::uint64_t value = 99;
            EXPECT_FAILS(-1, row.error, ivra_hw_read(board.core(475), &row.field, &value)) << row.field.name;
            EXPECT_FAILS(-1, row.error, ivra_hw_write(board.core(475), &row.field, 0)) << row.field.name;
            EXPECT_EQ(value, 99U);
        }
        const ivra_hw_register_description word{0, 0, 32, "root"};
        std::uint64_t value = 99;
        EXPECT_FAILS(-1, ERANGE, ivra_hw_read(board.root, &word, &value)) << "the root has no space";
    });
}

TEST_F(cores, a_value_that_the_field_cannot_hold_is_ERANGE_and_nothing_is_written)
{
    run([] {
        const opened board;
        const ivra_hw_register_description field{0x10, 4, 8, "byte"};
        EXPECT_FAILS(-1, ERANGE, ivra_hw_write(board.core(475), &field, 0x100));
        EXPECT_EQ(read_word(board.core(475), 0x10), 0x89abcdefU);
    });
}

class top_level_core : public host
{
};

TEST_F(top_level_core, says_what_board_and_fpga_the_design_runs_on)
{
    run([] {
        const opened board;
        ivra_hw_top* top = ivra_hw_top_create(board.root);
        ASSERT_NE(top, nullptr);
        char text[IVRA_HW_TOP_MAX_STRING_LENGTH];
        EXPECT_EQ(ivra_hw_top_get_board_name(top, text, sizeof text), 11);
        EXPECT_STREQ(text, "xilinx_u200");
        EXPECT_FAILS(-1, ERANGE, ivra_hw_top_get_board_name(top, text, 11));
        EXPECT_EQ(ivra_hw_top_get_device_id(top, text, sizeof text), 19);
        EXPECT_STREQ(text, "xcu200-fsgd2104-2-e");
        EXPECT_FAILS(-1, ERANGE, ivra_hw_top_get_device_id(top, text, 19));
        double celsius = 0;
        EXPECT_EQ(ivra_hw_top_get_temperature(top, &celsius), 0);
        EXPECT_EQ(celsius, 45.5);
        EXPECT_EQ(ivra_hw_top_update_params(top), 0);
        ivra_hw_top_destroy(top);
    });
}

TEST_F(top_level_core, the_fpga_serial_has_its_least_significant_word_first_and_prints_24_digits)
{
    run([] {
        const opened board;
        ivra_hw_top* top = ivra_hw_top_create(board.root);
        ivra_hw_top_fpga_serial_id id{};
        EXPECT_EQ(ivra_hw_top_get_fpga_serial_id(top, &id), 0);
        EXPECT_THAT(id.words, ::testing::ElementsAre(0x1a104285U, 0x01285c0fU, 0x40020000U));
        char text[25];
        EXPECT_EQ(ivra_hw_top_print_fpga_serial_id(&id, text, sizeof text), 24);
        EXPECT_STREQ(text, "4002000001285c0f1a104285");
        EXPECT_FAILS(-1, ERANGE, ivra_hw_top_print_fpga_serial_id(&id, text, 24));
        const ivra_hw_top_fpga_serial_id small{{0xABCDEF, 0, 0}};
        EXPECT_EQ(ivra_hw_top_print_fpga_serial_id(&small, text, sizeof text), 24);
        EXPECT_STREQ(text, "000000000000000000abcdef") << "lower case, with the zeros";
        ivra_hw_top_destroy(top);
    });
}

TEST_F(top_level_core, stores_as_many_mac_addresses_as_fit_and_returns_how_many_there_are)
{
    run([] {
        const opened board;
        ivra_hw_top* top = ivra_hw_top_create(board.root);
        EXPECT_EQ(ivra_hw_top_get_mac_addresses(top, nullptr, 0), 3);
        std::array<ivra_mac_address, 4> addresses{};
        EXPECT_EQ(ivra_hw_top_get_mac_addresses(top, addresses.data(), 2), 3);
        EXPECT_THAT(addresses[1].bytes, ::testing::ElementsAre(2, 0, 0, 0, 0x10, 0xff));
        EXPECT_THAT(addresses[2].bytes, ::testing::Each(0));
        EXPECT_EQ(ivra_hw_top_get_mac_addresses(top, addresses.data(), 4), 3);
        EXPECT_THAT(addresses[2].bytes, ::testing::ElementsAre(2, 0, 0, 0, 0x11, 0));
        EXPECT_THAT(addresses[3].bytes, ::testing::Each(0));
        EXPECT_FAILS(-1, EINVAL, ivra_hw_top_get_mac_addresses(top, nullptr, 1));
        ivra_hw_top_destroy(top);
    });
}

TEST_F(cores, a_design_without_any_has_no_top_flash_i2c_or_uart)
{
    plug({R"({"model": "xilinx_u200", "uid": "a", "cores": []})"});
    run([] {
        const opened board;
        EXPECT_FAILS(nullptr, ENODEV, ivra_hw_top_create(board.root));
        EXPECT_FAILS(nullptr, ENODEV, ivra_flash_create(board.root));
        EXPECT_FAILS(nullptr, ENODEV, ivra_i2c_create(board.root));
        EXPECT_FAILS(nullptr, ENODEV, ivra_uart_create(board.root));
    });
}

TEST_F(cores, a_design_with_a_uart_has_one_on_which_nothing_waits)
{
    run([] {
        const opened board;
        ivra_uart* uart = ivra_uart_create(board.root);
        ASSERT_NE(uart, nullptr);
        std::uint8_t buffer[4] = {1, 2, 3, 4};
        EXPECT_EQ(ivra_uart_read(uart, buffer, sizeof buffer), 0);
        EXPECT_THAT(buffer, ::testing::ElementsAre(1, 2, 3, 4));
        EXPECT_EQ(ivra_uart_write_all(uart, buffer, sizeof buffer, 10), 0);
        ivra_uart_destroy(uart);
    });
}

TEST_F(cores, a_controller_is_found_on_its_own_core_and_not_on_another_one)
{
    run([] {
        const opened board;
        ivra_uart* uart = ivra_uart_create(board.core(48));
        EXPECT_NE(uart, nullptr);
        ivra_uart_destroy(uart);
        EXPECT_FAILS(nullptr, ENODEV, ivra_uart_create(board.core(32)));
    });
}

class mac_addresses : public host
{
};

TEST_F(mac_addresses, are_read_from_six_pairs_of_digits_and_from_nothing_else)
{
    run([] {
        for (const char* text : {"00:11:22:aa:bb:cc", "00:11:22:AA:bB:Cc"}) {
            ivra_mac_address address{};
            EXPECT_EQ(ivra_parse_mac_address(text, &address), 0);
            EXPECT_THAT(address.bytes, ::testing::ElementsAre(0x00, 0x11, 0x22, 0xaa, 0xbb, 0xcc));
        }
        for (const char* text : {"", "00:11:22:aa:bb", "00:11:22:aa:bb:c", "00:11:22:aa:bb:cc ", " 00:11:22:aa:bb:cc",
                                 "00:11:22:aa:bb:cc:", "00-11-22-aa-bb-cc", "001122aabbcc", "00:11:22:aa:bb:cg",
                                 "00:11:22:aa:bb:0x", "00:11:22:aa:bb: c", "00:11:22:aa:bb:+c", "0:11:22:aa:bb:ccc",
                                 "00:11:22:aa:bb:cc:dd", "00:11:22:aa:bbccc:"}) {
            ivra_mac_address address{{1, 2, 3, 4, 5, 6}};
            EXPECT_FAILS(-1, EINVAL, ivra_parse_mac_address(text, &address)) << text;
            EXPECT_THAT(address.bytes, ::testing::ElementsAre(1, 2, 3, 4, 5, 6)) << text;
        }
    });
}

TEST_F(mac_addresses, print_as_snprintf_does)
{
    run([] {
        const ivra_mac_address address{{0x00, 0x11, 0x22, 0xaa, 0xbb, 0xcc}};
        char text[32];
        EXPECT_EQ(ivra_print_mac_address(&address, text, sizeof text), 17);
        EXPECT_STREQ(text, "00:11:22:aa:bb:cc");
        EXPECT_EQ(ivra_print_mac_address(&address, text, 18), 17);
        EXPECT_STREQ(text, "00:11:22:aa:bb:cc");
        EXPECT_EQ(ivra_print_mac_address(&address, text, 17), 17);
        EXPECT_STREQ(text, "00:11:22:aa:bb:c");
        EXPECT_EQ(ivra_print_mac_address(&address, text, 1), 17);
        EXPECT_STREQ(text, "");
        EXPECT_EQ(ivra_print_mac_address(&address, nullptr, 0), 17);
        EXPECT_FAILS(-1, EINVAL, ivra_print_mac_address(&address, nullptr, 18));
    });
}

TEST_F(mac_addresses, are_48_bit_integers_with_the_first_byte_on_top)
{
    run([] {
        const ivra_mac_address address{{0x01, 0x11, 0x22, 0xaa, 0xbb, 0xcc}};
        EXPECT_EQ(ivra_mac_address_to_int(&address), 0x011122aabbccU);
        ivra_mac_address back{};
        EXPECT_EQ(ivra_mac_address_from_int(0x011122aabbccU, &back), 0);
        EXPECT_THAT(back.bytes, ::testing::ElementsAreArray(address.bytes));
        EXPECT_EQ(ivra_mac_address_from_int(0xffffffffffffU, &back), 0);
        EXPECT_THAT(back.bytes, ::testing::Each(0xff));
        EXPECT_FAILS(-1, ERANGE, ivra_mac_address_from_int(0x1000000000000U, &back));
        EXPECT_THAT(back.bytes, ::testing::Each(0xff));
    });
}

} // namespace

} // namespace ivra::platform_tests
