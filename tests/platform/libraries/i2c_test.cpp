#include "story.h"

#include <chrono>
#include <cstdlib>
#include <fstream>
#include <initializer_list>
#include <thread>
#include <tuple>

namespace ivra::platform_tests {

namespace {

using namespace std::string_literals;
using ::testing::ElementsAre;
using ::testing::HasSubstr;

using bytes_t = std::vector<std::uint8_t>;

/// A host with a board of a model, and what its rack says of its I2C.
class i2c : public host
{
protected:
    void plug_board(const std::string& model, const std::string& json)
    {
        plug({R"({"model": ")" + model + R"(", "uid": "0000:01:00.0", "i2c": )" + json + "}"});
    }
};

/// The I2C controller of an opened board.
class controller
{
public:
    explicit controller(const opened& board) : handle{ivra_i2c_create(board.root)} { EXPECT_NE(handle, nullptr); }
    ~controller() { ivra_i2c_destroy(handle); }
    controller(const controller&) = delete;
    controller& operator=(const controller&) = delete;

    std::uint32_t pins() const
    {
        std::uint32_t word = 0;
        EXPECT_GT(ivra_i2c_read_control_pins(handle, &word), 0);
        return word;
    }
    void set_pins(std::uint32_t word) const { EXPECT_EQ(ivra_i2c_write_control_pins(handle, word), 0); }

    ivra_i2c* handle;
};

/// A bus of it.
class bus
{
public:
    bus(const controller& c, std::uint8_t index) : handle{ivra_i2c_get_bus(c.handle, index)}
    {
        EXPECT_NE(handle, nullptr);
    }
    ~bus() { ivra_i2c_bus_destroy(handle); }
    bus(const bus&) = delete;
    bus& operator=(const bus&) = delete;

    bytes_t read(std::uint8_t device, std::size_t size) const
    {
        bytes_t bytes(size, 0xa5);
        EXPECT_EQ(ivra_i2c_bus_read(handle, device, bytes.data(), size), static_cast<int>(size));
        return bytes;
    }
    bytes_t read(std::uint8_t device, std::uint8_t reg, std::size_t size) const
    {
        bytes_t bytes(size, 0xa5);
        EXPECT_EQ(ivra_i2c_bus_read_register(handle, device, reg, bytes.data(), size), static_cast<int>(size));
        return bytes;
    }
    void write(std::uint8_t device, std::initializer_list<std::uint8_t> bytes) const
    {
        EXPECT_EQ(ivra_i2c_bus_write(handle, device, bytes.begin(), bytes.size()), static_cast<int>(bytes.size()));
    }
    void write(std::uint8_t device, std::uint8_t reg, std::initializer_list<std::uint8_t> bytes) const
    {
        EXPECT_EQ(ivra_i2c_bus_write_register(handle, device, reg, bytes.begin(), bytes.size()),
                  static_cast<int>(bytes.size()));
    }
    /// Whether a device acknowledges its address; a failure otherwise has to be ENXIO.
    bool answers(std::uint8_t device) const
    {
        std::uint8_t byte = 0;
        errno = 0;
        const int count = ivra_i2c_bus_read(handle, device, &byte, 1);
        if (count < 0) {
            EXPECT_EQ(errno, ENXIO);
            return false;
        }
        EXPECT_EQ(count, 1);
        return true;
    }

    ivra_i2c_bus* handle;
};

bytes_t buses_of(const controller& c)
{
    bytes_t found;
    for (int i = 0; i < 256; ++i) {
        const auto index = static_cast<std::uint8_t>(i);
        errno = 0;
        ivra_i2c_bus* handle = ivra_i2c_get_bus(c.handle, index);
        if (handle == nullptr)
            EXPECT_EQ(errno, ENODEV);
        else
            found.push_back(index);
        ivra_i2c_bus_destroy(handle);
    }
    return found;
}

/// Addresses of a bus that acknowledge.
bytes_t answering(const bus& b)
{
    bytes_t found;
    for (std::uint8_t address = 0; address < 128; ++address)
        if (b.answers(address))
            found.push_back(address);
    return found;
}

std::string text_of(const bytes_t& bytes)
{
    return {bytes.begin(), bytes.end()};
}

// ---- control pins ----

TEST_F(i2c, control_pins_are_as_many_as_the_rack_says_and_keep_their_word_for_every_process)
{
    plug_board("xilinx_u200", R"({"pins": 5})");
    run([] {
        const opened board;
        const controller c{board};
        std::uint32_t word = 0xffffffff;
        EXPECT_EQ(ivra_i2c_read_control_pins(c.handle, &word), 5);
        EXPECT_EQ(word, 0U) << "all off at the start";
        c.set_pins(0xfffffff6);
        EXPECT_EQ(c.pins(), 0x16U) << "there are no others";
    });
    run([] {
        const opened board;
        EXPECT_EQ(controller{board}.pins(), 0x16U);
    });
    plug_board("xilinx_u200", R"({"pins": 32})");
    run([] {
        const opened board;
        const controller c{board};
        c.set_pins(0x80000001);
        std::uint32_t word = 0;
        EXPECT_EQ(ivra_i2c_read_control_pins(c.handle, &word), 32);
        EXPECT_EQ(word, 0x80000001U);
    });
}

TEST_F(i2c, a_controller_without_pins_says_so_and_leaves_the_word_alone)
{
    plug_board("xilinx_u200", R"({"pins": 0})");
    run([] {
        const opened board;
        const controller c{board};
        EXPECT_EQ(ivra_i2c_write_control_pins(c.handle, 1), 0);
        std::uint32_t word = 77;
        EXPECT_EQ(ivra_i2c_read_control_pins(c.handle, &word), 0);
        EXPECT_EQ(word, 77U);
        EXPECT_FALSE(bus(c, 0).answers(0x74)) << "a pin that nobody drives is off";
    });
}

// ---- boards ----

TEST_F(i2c, on_a_u200_and_a_u250_nothing_answers_while_pin_0_is_off)
{
    for (const char* model : {"xilinx_u200", "xilinx_u250"}) {
        plug_board(model, "{}");
        run([] {
            const opened board;
            const controller c{board};
            EXPECT_EQ(buses_of(c), (bytes_t{0}));
            const bus b{c, 0};
            EXPECT_EQ(answering(b), bytes_t{});
            c.set_pins(0xfe);
            EXPECT_EQ(answering(b), bytes_t{});
            c.set_pins(0x01);
            EXPECT_EQ(answering(b), (bytes_t{0x74}));
            for (const std::uint8_t channel : bytes_t{0x01, 0x02}) {
                b.write(0x74, {channel});
                EXPECT_EQ(answering(b), (bytes_t{0x50, 0x51, 0x74}));
            }
            b.write(0x74, {0xfc});
            EXPECT_EQ(answering(b), (bytes_t{0x74}));
            b.write(0x74, {0x01});
            c.set_pins(0x00);
            EXPECT_EQ(answering(b), bytes_t{});
            c.set_pins(0x01);
            EXPECT_EQ(b.read(0x74, 1), (bytes_t{0x01})) << "it was not switched off, only out of reach";
        });
    }
}

TEST_F(i2c, an_xupp3r_has_four_cages_on_buses_of_their_own_and_its_eeprom_on_bus_0_behind_pin_0)
{
    for (const char* model : {"bittware_xupp3r", "ivra_fpb2"}) {
        plug_board(model, R"({"mac_eeprom": "MAC=02:00:00:00:30:00"})");
        run([] {
            const opened board;
            const controller c{board};
            EXPECT_EQ(buses_of(c), (bytes_t{0, 1, 2, 3, 4, 5}));
            const bus first{c, 0};
            EXPECT_EQ(answering(first), bytes_t{});
            for (const std::uint8_t index : bytes_t{1, 2, 3, 4})
                EXPECT_EQ(answering(bus{c, index}), (bytes_t{0x50, 0x51})) << "cages answer without the pin";
            EXPECT_EQ(answering(bus{c, 5}), bytes_t{}) << "it has no multiplexer";
            c.set_pins(0x01);
            EXPECT_EQ(answering(first), (bytes_t{0x50}));
            EXPECT_EQ(text_of(first.read(0x50, 0, 21)), "MAC=02:00:00:00:30:00");
        });
    }
}

TEST_F(i2c, an_xupp3r_with_more_cages_has_four_of_them_behind_a_multiplexer_on_bus_5)
{
    plug_board("bittware_xupp3r", R"({"cages": ["empty", "empty", "empty", "empty", "empty", "silent", "silent"]})");
    run([] {
        const opened board;
        const controller c{board};
        const bus b{c, 5};
        EXPECT_EQ(answering(b), (bytes_t{0x72}));
        b.write(0x72, {0x01});
        EXPECT_EQ(answering(b), (bytes_t{0x50, 0x51, 0x72}));
        for (const std::uint8_t channel : bytes_t{0x02, 0x04}) {
            b.write(0x72, {channel});
            EXPECT_EQ(answering(b), (bytes_t{0x72})) << "that cage is silent";
        }
        b.write(0x72, {0x08});
        EXPECT_EQ(answering(b), (bytes_t{0x50, 0x51, 0x72})) << "the cage left out is empty";
        b.write(0x72, {0xf0});
        EXPECT_EQ(answering(b), (bytes_t{0x72}));
    });
}

TEST_F(i2c, an_xupvv8_has_everything_behind_one_multiplexer_and_pin_0_is_the_eeproms_alone)
{
    plug_board("bittware_xupvv8", R"({"mac_eeprom": "MAC=02:00:00:00:30:00"})");
    run([] {
        const opened board;
        const controller c{board};
        EXPECT_EQ(buses_of(c), (bytes_t{0}));
        const bus b{c, 0};
        EXPECT_EQ(answering(b), (bytes_t{0x72}));
        for (const std::uint8_t channel : bytes_t{0x10, 0x20, 0x40, 0x80}) {
            b.write(0x72, {channel});
            EXPECT_EQ(answering(b), (bytes_t{0x50, 0x51, 0x72}));
        }
        b.write(0x72, {0x01});
        EXPECT_EQ(answering(b), (bytes_t{0x72}));
        c.set_pins(0x01);
        EXPECT_EQ(answering(b), (bytes_t{0x50, 0x72}));
        EXPECT_EQ(text_of(b.read(0x50, 0, 21)), "MAC=02:00:00:00:30:00");
        b.write(0x72, {0x00});
        EXPECT_EQ(answering(b), (bytes_t{0x72}));
    });
}

TEST_F(i2c, a_u50_and_a_u55c_have_a_clock_generator_that_wants_pauses)
{
    ::setenv("IVRA_VIRTUAL_CLOCK", (folder / "clock").c_str(), 1);
    for (const char* model : {"xilinx_u50", "xilinx_u55c"}) {
        plug_board(model, "{}");
        run([] {
            using namespace std::chrono_literals;
            const opened board;
            const controller c{board};
            EXPECT_EQ(buses_of(c), (bytes_t{0}));
            const bus b{c, 0};
            EXPECT_EQ(answering(b), (bytes_t{0x68})) << "without the pin";
            b.write(0x68, 0x01, {0x0b});
            std::this_thread::sleep_for(1ms);
            b.write(0x68, 0x24, {0xc0});
            std::this_thread::sleep_for(1ms);
            b.write(0x68, 0x25, {0x00});
            b.write(0x68, 0x01, {0x0a}); // at once
        });
        run([] {
            const opened board;
            const controller c{board};
            const bus b{c, 0};
            EXPECT_EQ(b.read(0x68, 0x01, 1), (bytes_t{0x0a})) << "the page stays for every process";
        });
        EXPECT_THAT(shown(), HasSubstr("   Clock          written too fast, its outputs are off\n"));
    }
}

TEST_F(i2c, a_board_that_nobody_knows_has_neither_pins_nor_buses)
{
    plug_board("unknown_model", "{}");
    run([] {
        const opened board;
        const controller c{board};
        std::uint32_t word = 0;
        EXPECT_EQ(ivra_i2c_read_control_pins(c.handle, &word), 0);
        EXPECT_EQ(buses_of(c), bytes_t{});
    });
}

// ---- devices ----

TEST_F(i2c, a_multiplexer_keeps_the_last_byte_for_every_process)
{
    plug_board("bittware_xupvv8", "{}");
    run([] {
        const opened board;
        const controller c{board};
        const bus b{c, 0};
        EXPECT_EQ(b.read(0x72, 1), (bytes_t{0x00})) << "no channel at the start";
        b.write(0x72, {0x10, 0x40});
        EXPECT_EQ(b.read(0x72, 3), (bytes_t{0x40, 0x40, 0x40}));
        b.write(0x72, {});
    });
    run([] {
        const opened board;
        const controller c{board};
        const bus b{c, 0};
        EXPECT_EQ(b.read(0x72, 1), (bytes_t{0x40}));
        EXPECT_EQ(b.read(0x72, 0x20, 1), (bytes_t{0x20})) << "it has no registers: this is a byte as any other";
    });
}

TEST_F(i2c, an_eeprom_counts_its_address_on_and_cannot_be_written)
{
    plug_board("bittware_xupp3r", R"({"mac_eeprom": "MAC="})");
    run([] {
        const opened board;
        const controller c{board};
        c.set_pins(1);
        const bus b{c, 0};
        EXPECT_EQ(text_of(b.read(0x50, 0, 2)), "MA");
        EXPECT_EQ(b.read(0x50, 4), (bytes_t{'C', '=', 0xff, 0xff})) << "erased behind its contents";
        b.write(0x50, {0x02});
        EXPECT_EQ(b.read(0x50, 1), (bytes_t{'C'}));
        b.write(0x50, 0x00, {'X', 'Y'});
        EXPECT_EQ(b.read(0x50, 2), (bytes_t{'C', '='})) << "counted on, but nothing was stored";
        EXPECT_EQ(text_of(b.read(0x50, 0, 4)), "MAC=");
        EXPECT_EQ(b.read(0x50, 0xff, 2), (bytes_t{0xff, 'M'})) << "the last byte, and round";
    });
    plug_board("bittware_xupp3r", R"({"mac_eeprom": null})");
    run([] {
        const opened board;
        const controller c{board};
        c.set_pins(1);
        EXPECT_FALSE(bus(c, 0).answers(0x50));
    });
}

TEST_F(i2c, an_empty_cage_reads_as_all_ones_or_does_not_acknowledge)
{
    plug_board("bittware_xupp3r", R"({"cages": ["empty", "silent"]})");
    run([] {
        const opened board;
        const controller c{board};
        const bus empty{c, 1};
        EXPECT_EQ(empty.read(0x50, 0, 3), (bytes_t{0xff, 0xff, 0xff}));
        empty.write(0x50, 127, {0x03});
        EXPECT_EQ(empty.read(0x50, 127, 1), (bytes_t{0xff}));
        const bus silent{c, 2};
        std::uint8_t byte = 0;
        EXPECT_FAILS(-1, ENXIO, ivra_i2c_bus_read_register(silent.handle, 0x50, 0, &byte, 1));
        EXPECT_FAILS(-1, ENXIO, ivra_i2c_bus_write_register(silent.handle, 0x50, 0, &byte, 1));
        EXPECT_FAILS(-1, ENXIO, ivra_i2c_bus_read(silent.handle, 0x50, &byte, 1));
        EXPECT_FAILS(-1, ENXIO, ivra_i2c_bus_write(silent.handle, 0x50, &byte, 1));
        EXPECT_FAILS(-1, ENXIO, ivra_i2c_bus_write(silent.handle, 0x50, nullptr, 0));
    });
}

TEST_F(i2c, a_board_can_be_wired_otherwise)
{
    plug_board("xilinx_u200", R"({"mac_eeprom": "other", "cages": ["silent", "empty"], "buses": [
        {"index": 3, "devices": []},
        {"index": 7, "devices": [
            {"device": "multiplexer", "address": "0x70"},
            {"device": "multiplexer", "address": "0x71", "behind": ["0x70", "0x04"]},
            {"device": "mac_eeprom", "address": "0x33", "pin": 2, "behind": ["0x71", "0x81"]}]}]})");
    run([] {
        const opened board;
        const controller c{board};
        EXPECT_EQ(buses_of(c), (bytes_t{3, 7}));
        EXPECT_EQ(answering(bus{c, 3}), bytes_t{});
        const bus b{c, 7};
        EXPECT_EQ(answering(b), (bytes_t{0x70}));
        b.write(0x70, {0x04});
        EXPECT_EQ(answering(b), (bytes_t{0x70, 0x71}));
        b.write(0x71, {0x80});
        c.set_pins(0x04);
        EXPECT_EQ(answering(b), (bytes_t{0x33, 0x70, 0x71}));
        EXPECT_EQ(text_of(b.read(0x33, 0, 5)), "other");
        b.write(0x70, {0x03});
        EXPECT_EQ(answering(b), (bytes_t{0x70})) << "what is behind goes with the multiplexer";
    });
}

TEST_F(i2c, devices_that_answer_at_once_collide_as_a_wired_and_with_a_warning_in_the_trace)
{
    ::setenv("IVRA_VIRTUAL_TRACE", (folder / "trace").c_str(), 1);
    plug_board("bittware_xupvv8", R"({"mac_eeprom": {"hex": "f50f"}, "buses": [{"index": 0, "devices": [
        {"device": "multiplexer", "address": "0x50"}, {"device": "mac_eeprom", "address": "0x50"},
        {"device": "cage", "number": 0}]}]})");
    run([] {
        const opened board;
        const controller c{board};
        const bus b{c, 0};
        b.write(0x50, {0x00, 0x3c}); // to the EEPROM an address and a byte that it does not store
        EXPECT_EQ(b.read(0x50, 1), (bytes_t{0x3c & 0x0f})) << "the cage is empty: it pulls nothing down";
        b.write(0x50, {0x00});
        EXPECT_EQ(b.read(0x51, 1), (bytes_t{0xff}));
    });
    EXPECT_THAT(trace(), ::testing::IsSupersetOf({
                             "ivra_i2c_bus_write(0000:01:00.0, 0x50, [00 3c]) = 2"
                             " (warning: several devices answered at once)"s,
                             "ivra_i2c_bus_read(0000:01:00.0, 0x50, 1) = 1: [0c]"
                             " (warning: several devices answered at once)"s,
                             "ivra_i2c_bus_read(0000:01:00.0, 0x51, 1) = 1: [ff]"s,
                         }));
}

// ---- modules ----

/// A host with one module in the first cage of an XUPP3R, on bus 1.
class module_in_a_cage : public i2c
{
protected:
    void plug_module(const std::string& json) { plug_board("bittware_xupp3r", R"({"cages": [)" + json + "]}"); }

    static void use(tests::function_ref<void(const bus&)> story)
    {
        run([&] {
            const opened board;
            const controller c{board};
            story(bus{c, 1});
        });
    }
};

TEST_F(module_in_a_cage, an_sfp_answers_at_two_addresses_and_others_at_one)
{
    const std::pair<const char*, bytes_t> rows[] = {
        {"\"sfp-10g-sr\"", {0x50, 0x51}},
        {"\"sfp-no-diagnostics\"", {0x50}},
        {"\"qsfp28-sr4\"", {0x50}},
        {"\"qsfpdd-dr4\"", {0x50}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.first);
        plug_module(row.first);
        use([&](const bus& b) { EXPECT_EQ(answering(b), row.second); });
    }
}

TEST_F(module_in_a_cage, an_sfp_shows_its_identity_and_its_monitors_as_raw_values)
{
    plug_module(R"({"module": "sfp-10g-sr", "temperature": -0.5, "vcc": 3.3055, "tx_bias": 2, "tx_power": 6.5535,
                    "rx_power": 0.0001})");
    use([](const bus& b) {
        EXPECT_EQ(b.read(0x50, 0, 1), (bytes_t{0x03}));
        EXPECT_EQ(text_of(b.read(0x50, 20, 16)), "NORTHLIGHT      ");
        EXPECT_EQ(text_of(b.read(0x50, 40, 16)), "NL-S10-SR85     ");
        EXPECT_EQ(b.read(0x50, 92, 1), (bytes_t{0x68}));
        EXPECT_EQ(b.read(0x51, 96, 10), (bytes_t{0xff, 0x80, 0x81, 0x1f, 0x03, 0xe8, 0xff, 0xff, 0x00, 0x01}));
        b.write(0x50, 20, {'X'});
        b.write(0x51, 96, {0x11});
        EXPECT_EQ(text_of(b.read(0x50, 20, 1)), "N") << "it cannot be written";
        EXPECT_EQ(b.read(0x51, 96, 1), (bytes_t{0xff}));
        b.write(0x51, 128, {0x12, 0x34});
        EXPECT_EQ(b.read(0x51, 128, 2), (bytes_t{0x12, 0x34})) << "this is the user's";
    });
}

TEST_F(module_in_a_cage, addresses_of_an_sfp_count_apart)
{
    plug_module(R"({"map": "sfp", "vendor_name": "ABCDEF", "bytes": {"A2:200": "0102030405"}})");
    use([](const bus& b) {
        b.write(0x50, {20});
        b.write(0x51, {200});
        EXPECT_EQ(text_of(b.read(0x50, 2)), "AB");
        EXPECT_EQ(b.read(0x51, 2), (bytes_t{1, 2}));
        EXPECT_EQ(text_of(b.read(0x50, 2)), "CD");
        EXPECT_EQ(b.read(0x51, 2), (bytes_t{3, 4}));
    });
}

TEST_F(module_in_a_cage, a_qsfp_shows_its_monitors_in_the_lower_page)
{
    plug_module(R"({"module": "qsfp28-sr4", "temperature": 33.5, "vcc": 3.3, "rx_power": [0.1, 0.2, 0.3, 0.4],
                    "tx_bias": 8, "tx_power": [1, 2, 3, 4]})");
    use([](const bus& b) {
        EXPECT_EQ(b.read(0x50, 22, 6), (bytes_t{33, 128, 0, 0, 0x80, 0xe8}));
        EXPECT_THAT(b.read(0x50, 34, 24),
                    ElementsAre(0x03, 0xe8, 0x07, 0xd0, 0x0b, 0xb8, 0x0f, 0xa0,  // 1000, 2000, 3000, 4000
                                0x0f, 0xa0, 0x0f, 0xa0, 0x0f, 0xa0, 0x0f, 0xa0,  // 4000 each
                                0x27, 0x10, 0x4e, 0x20, 0x75, 0x30, 0x9c, 0x40)) // 10000 and so on
        ;
    });
}

TEST_F(module_in_a_cage, a_byte_selects_the_upper_page_for_every_process_and_a_page_it_lacks_is_page_0)
{
    plug_module("\"qsfp28-sr4\"");
    use([](const bus& b) {
        EXPECT_EQ(text_of(b.read(0x50, 148, 10)), "NORTHLIGHT");
        b.write(0x50, 127, {0x03});
        EXPECT_EQ(b.read(0x50, 128, 4), (bytes_t{75, 0, 0xfb, 0})) << "thresholds of the temperature: 75 and -5";
    });
    use([](const bus& b) {
        EXPECT_EQ(b.read(0x50, 127, 2), (bytes_t{0x03, 75})) << "still, and byte 127 leads to byte 128";
        b.write(0x50, 127, {0x55});
        EXPECT_EQ(b.read(0x50, 127, 1), (bytes_t{0x00}));
        EXPECT_EQ(text_of(b.read(0x50, 148, 10)), "NORTHLIGHT");
        b.write(0x50, 148, {'X'});
        EXPECT_EQ(text_of(b.read(0x50, 148, 1)), "N") << "it cannot be written";
    });
}

TEST_F(module_in_a_cage, a_cmis_module_has_its_lanes_in_page_11_as_the_standard_orders_them)
{
    plug_module(R"({"module": "qsfpdd-zr", "temperature": 1.25, "vcc": 3.3,
                    "tx_power": [0.1, 0.2, 0, 0, 0, 0, 0, 0.8], "tx_bias": 8, "rx_power": 0.3})");
    use([](const bus& b) {
        EXPECT_EQ(b.read(0x50, 14, 4), (bytes_t{1, 64, 0x80, 0xe8}));
        EXPECT_EQ(text_of(b.read(0x50, 129, 15)), "AURORA PHOTONIX");
        b.write(0x50, 127, {0x01});
        EXPECT_EQ(b.read(0x50, 159, 2), (bytes_t{0x03, 0x17})) << "everything, and a bias multiplier of 4";
        b.write(0x50, 127, {0x11});
        EXPECT_EQ(b.read(0x50, 154, 4), (bytes_t{0x03, 0xe8, 0x07, 0xd0})) << "transmit power";
        EXPECT_EQ(b.read(0x50, 168, 2), (bytes_t{0x1f, 0x40})) << "of the last lane";
        EXPECT_EQ(b.read(0x50, 170, 4), (bytes_t{0x03, 0xe8, 0x03, 0xe8})) << "bias: 8 mA are 1000 x 4 x 2 uA";
        EXPECT_EQ(b.read(0x50, 186, 2), (bytes_t{0x0b, 0xb8})) << "receive power";
    });
}

/// Ranges of bytes that take what is written to them, but for the one that selects the page, as "86-106 119-126".
std::string writable(const bus& b, std::uint8_t device, unsigned first, unsigned last)
{
    std::string ranges;
    bool was_writable = false;
    for (unsigned at = first; at <= last + 1; ++at) {
        bool is_writable = false;
        if (const auto place = static_cast<std::uint8_t>(at); at <= last && at != 127) {
            const std::uint8_t before = b.read(device, place, 1).front();
            const auto other = static_cast<std::uint8_t>(~before);
            b.write(device, place, {other});
            is_writable = b.read(device, place, 1).front() == other;
            b.write(device, place, {before});
        }
        if (is_writable && !was_writable)
            ranges += (ranges.empty() ? "" : " ") + std::to_string(at);
        else if (!is_writable && was_writable)
            ranges += "-" + std::to_string(at - 1);
        was_writable = is_writable;
    }
    return ranges;
}

TEST_F(module_in_a_cage, takes_control_passwords_and_the_users_bytes_from_its_host_and_no_others)
{
    plug_module("\"sfp-10g-sr\"");
    use([](const bus& b) {
        EXPECT_EQ(writable(b, 0x50, 0, 255), "");
        EXPECT_EQ(writable(b, 0x51, 0, 255), "110-110 128-247");
    });
    struct row_t
    {
        std::uint8_t page;
        const char* writable;
    };
    const std::tuple<const char*, const char*, std::vector<row_t>> modules[] = {
        {R"({"map": "qsfp", "bytes": {"02:128": "00", "03:128": "00"}})", // SFF-8636
         "86-106 119-126",
         {{0x00, ""}, {0x02, "128-255"}, {0x03, "226-251"}}},
        {R"({"map": "cmis", "bytes": {"02:128": "00", "03:128": "00", "04:128": "00", "10:128": "00"}})",
         "26-26 31-36 118-126",
         {{0x00, ""}, {0x01, ""}, {0x02, ""}, {0x03, "128-255"}, {0x04, ""}, {0x10, "128-255"}, {0x11, ""}}},
    };
    for (const auto& [json, lower, pages] : modules) {
        SCOPED_TRACE(json);
        plug_module(json);
        use([&, &lower_page = lower, &upper_pages = pages](const bus& b) {
            EXPECT_EQ(writable(b, 0x50, 0, 127), lower_page);
            for (const row_t& row : upper_pages) {
                b.write(0x50, 127, {row.page});
                EXPECT_EQ(b.read(0x50, 127, 1).front(), row.page);
                EXPECT_EQ(writable(b, 0x50, 128, 255), row.writable) << "page " << int{row.page};
            }
        });
    }
}

TEST_F(module_in_a_cage, a_module_of_flat_memory_has_one_upper_page)
{
    plug_module(R"({"map": "cmis", "flat": true, "vendor_name": "FLAT", "bytes": {"11:154": "aabb"}})");
    use([](const bus& b) {
        b.write(0x50, 127, {0x11});
        EXPECT_EQ(b.read(0x50, 127, 1), (bytes_t{0x00}));
        EXPECT_EQ(text_of(b.read(0x50, 129, 4)), "FLAT");
        EXPECT_EQ(b.read(0x50, 2, 1).at(0) & 0x80, 0x80);
    });
    plug_module(R"({"map": "qsfp", "flat": true, "bytes": {"03:128": "aabb"}})");
    use([](const bus& b) {
        b.write(0x50, 127, {0x03});
        EXPECT_EQ(b.read(0x50, 127, 2), (bytes_t{0x00, 0x11}));
        EXPECT_EQ(b.read(0x50, 2, 1).at(0) & 0x04, 0x04);
    });
}

TEST_F(module_in_a_cage, raw_bytes_can_be_anything_anywhere_and_count_most)
{
    plug_module(R"({"module": "qsfp28-sr4", "temperature": 33, "bytes": {"0": "fe", "22": "80", "00:148": "00ff1b"}})");
    use([](const bus& b) {
        EXPECT_EQ(b.read(0x50, 0, 1), (bytes_t{0xfe}));
        EXPECT_EQ(b.read(0x50, 22, 2), (bytes_t{0x80, 0x00}));
        EXPECT_EQ(b.read(0x50, 148, 4), (bytes_t{0x00, 0xff, 0x1b, 'T'}));
    });
}

/// Bias and power of the first lane's transmitter, and received power.
bytes_t first_lane_of_qsfp(const bus& b)
{
    bytes_t bytes;
    for (const std::uint8_t at : bytes_t{42, 43, 50, 51, 34, 35})
        bytes.push_back(b.read(0x50, at, 1).at(0));
    return bytes;
}

TEST_F(module_in_a_cage, a_qsfp_saves_power_when_its_host_overrides_the_pin_and_its_transmitters_are_off)
{
    plug_module(R"({"module": "qsfp28-sr4", "tx_bias": 8, "tx_power": 1, "rx_power": 0.1, "bytes": {"93": "04"}})");
    const bytes_t on{0x0f, 0xa0, 0x27, 0x10, 0x03, 0xe8};
    const bytes_t off{0, 0, 0, 0, 0x03, 0xe8};
    use([&](const bus& b) {
        EXPECT_EQ(first_lane_of_qsfp(b), on);
        b.write(0x50, 93, {0x06});
        EXPECT_EQ(first_lane_of_qsfp(b), on) << "without the override bit the pin counts";
        b.write(0x50, 93, {0x07});
        EXPECT_EQ(first_lane_of_qsfp(b), off);
    });
    use([&](const bus& b) {
        EXPECT_EQ(b.read(0x50, 93, 1), (bytes_t{0x07}));
        EXPECT_EQ(first_lane_of_qsfp(b), off);
        b.write(0x50, 93, {0x05});
        EXPECT_EQ(first_lane_of_qsfp(b), on);
    });
    plug_module(R"({"module": "qsfp28-sr4", "tx_bias": 8, "tx_power": 1, "rx_power": 0.1, "low_power_pin": true})");
    use([&](const bus& b) {
        EXPECT_EQ(first_lane_of_qsfp(b), off);
        b.write(0x50, 93, {0x01});
        EXPECT_EQ(first_lane_of_qsfp(b), on);
    });
    plug_module(R"({"module": "qsfp28-copper", "tx_bias": 8, "tx_power": 1, "rx_power": 0.1, "bytes": {"93": "03"}})");
    use([&](const bus& b) { EXPECT_EQ(first_lane_of_qsfp(b), on) << "power class 1 has nothing to switch off"; });
}

TEST_F(module_in_a_cage, a_cmis_module_tells_in_its_state_that_it_saves_power)
{
    plug_module(R"({"module": "qsfpdd-dr4", "low_power_pin": true})"); // its byte 26 lets the pin count
    const auto lanes = [](const bus& b) {
        b.write(0x50, 127, {0x11});
        bytes_t bytes = b.read(0x50, 128, 4); // of two lanes each
        for (const std::uint8_t at : bytes_t{154, 170, 186})
            bytes.push_back(static_cast<std::uint8_t>(b.read(0x50, at, 2) != bytes_t{0, 0}));
        return bytes;
    };
    use([&](const bus& b) {
        EXPECT_EQ(b.read(0x50, 26, 1), (bytes_t{0x40}));
        EXPECT_EQ(b.read(0x50, 3, 1), (bytes_t{0x03})) << "low power, no interrupt";
        EXPECT_EQ(lanes(b), (bytes_t{0x11, 0x11, 0x11, 0x11, 0, 0, 1})) << "deactivated; no transmit power, no bias";
        b.write(0x50, 26, {0x00});
        EXPECT_EQ(b.read(0x50, 3, 1), (bytes_t{0x07})) << "ready";
        EXPECT_EQ(lanes(b), (bytes_t{0x44, 0x44, 0x44, 0x44, 1, 1, 1}));
        b.write(0x50, 26, {0x10});
        EXPECT_EQ(b.read(0x50, 3, 1), (bytes_t{0x03}));
    });
    use([](const bus& b) { EXPECT_EQ(b.read(0x50, 3, 1), (bytes_t{0x03})) << "to every process"; });
    plug_module("\"qsfpdd-flat\"");
    use([](const bus& b) {
        b.write(0x50, 26, {0x10});
        EXPECT_EQ(b.read(0x50, 3, 1), (bytes_t{0x07})) << "a cable of flat memory is always ready";
    });
}

TEST_F(module_in_a_cage, a_dump_makes_a_module)
{
    std::filesystem::create_directory(folder / "modules");
    std::ofstream{folder / "modules/mine.hex"} << R"(# lower page and page 00h, as hexdump -C prints them
00000000  0d 05 06 00 00 00 00 00  00 00 00 00 00 00 00 00  |................|
00000010  00 00 00 00 00 00 1c 40  00 00 7f e2 00 00 00 00  |.......@........|
00000020  00 00 00 00 00 00 00 00  00 00 00 00 00 00 00 00  |................|
*
00000080  0d 00 00 00 00 00 00 00  00 00 00 00 00 00 00 00  |................|
00000090  00 00 00 00 4d 49 4e 45  20 20 20 20 20 20 20 20  |....MINE        |
000000a0  00 00 00 00 00 00 00 00  00 00 00 00 00 00 00 00  |................|
*
00000100
)";
    plug_module(R"({"dump": "modules/mine.hex"})");
    use([](const bus& b) {
        EXPECT_EQ(answering(b), (bytes_t{0x50}));
        EXPECT_EQ(b.read(0x50, 0, 3), (bytes_t{0x0d, 0x05, 0x06}));
        EXPECT_EQ(b.read(0x50, 22, 6), (bytes_t{0x1c, 0x40, 0, 0, 0x7f, 0xe2}));
        EXPECT_EQ(text_of(b.read(0x50, 148, 12)), "MINE        ");
    });
    plug_module(R"({"dump": "modules/mine.hex", "temperature": 2})");
    use([](const bus& b) { EXPECT_EQ(b.read(0x50, 22, 2), (bytes_t{2, 0})); });
}

/// A captured CMIS module whose byte 3 says low power, although there is light and byte 26 does not ask for it.
std::string captured_cmis(const std::string& members)
{
    std::string data_path_and_light(2 * 74, '0');
    data_path_and_light.replace(0, 8, "77777777"); // initialised, but no output
    data_path_and_light.replace(52, 4, "1234");    // transmit power of lane 1
    data_path_and_light.replace(84, 4, "0bb8");    // its bias
    return R"({"map": "cmis", "captured": true, "memory": {
        "lower": "18400003000000000000000000002b40811c000000000000000000", "00": "18", "01": "00", "02": "00",
        "11": ")" +
           data_path_and_light + "\"}" + members + "}";
}

/// State, data path of two lanes, transmit power, bias.
bytes_t state_and_light(const bus& b)
{
    bytes_t bytes = b.read(0x50, 3, 1);
    b.write(0x50, 127, {0x11});
    for (const std::uint8_t at : bytes_t{128, 154, 155, 170, 171})
        bytes.push_back(b.read(0x50, at, 1).at(0));
    return bytes;
}

TEST_F(module_in_a_cage, a_captured_module_says_what_it_said_until_its_host_sets_another_power_mode)
{
    const bytes_t as_captured{0x03, 0x77, 0x12, 0x34, 0x0b, 0xb8};
    for (const char* members : {"", R"(, "low_power_pin": true, "bytes": {"26": "40"})"}) {
        plug_module(captured_cmis(members));
        use([&](const bus& b) {
            EXPECT_EQ(state_and_light(b), as_captured);
            const bool is_low = *members != '\0';
            b.write(0x50, 26, {static_cast<std::uint8_t>(is_low ? 0x00 : 0x10)});
            EXPECT_EQ(state_and_light(b),
                      is_low ? (bytes_t{0x07, 0x44, 0x12, 0x34, 0x0b, 0xb8}) : (bytes_t{0x03, 0x11, 0, 0, 0, 0}));
        });
        use([&](const bus& b) {
            b.write(0x50, 26, {static_cast<std::uint8_t>(*members != '\0' ? 0x10 : 0x00)});
            EXPECT_EQ(state_and_light(b), as_captured) << "the mode that it was captured in";
        });
    }
}

TEST_F(module_in_a_cage, a_captured_qsfp_in_low_power_shows_the_light_that_it_had)
{
    const std::string lower = "110602" + std::string(2 * 31, '0') + "03e8" + std::string(2 * 6, '0') + "0fa0" +
                              std::string(2 * 6, '0') + "2710" + std::string(2 * 41, '0') + "03";
    plug_module(R"({"map": "qsfp", "captured": true, "memory": {"lower": ")" + lower +
                R"(", "00": "11c0", "03": "00"}})");
    use([](const bus& b) {
        EXPECT_EQ(b.read(0x50, 93, 1), (bytes_t{0x03}));
        EXPECT_EQ(first_lane_of_qsfp(b), (bytes_t{0x0f, 0xa0, 0x27, 0x10, 0x03, 0xe8}));
        b.write(0x50, 93, {0x05});
        b.write(0x50, 93, {0x07});
        EXPECT_EQ(first_lane_of_qsfp(b), (bytes_t{0x0f, 0xa0, 0x27, 0x10, 0x03, 0xe8})) << "as before";
    });
    plug_module(R"({"map": "qsfp", "memory": {"lower": ")" + lower + R"(", "00": "11c0", "03": "00"}})");
    use([](const bus& b) { EXPECT_EQ(first_lane_of_qsfp(b), (bytes_t{0, 0, 0, 0, 0x03, 0xe8})) << "a made one"; });
}

TEST_F(module_in_a_cage, a_module_beside_the_rack_comes_before_one_of_the_platform_and_a_changed_one_starts_anew)
{
    const auto write_module = [this](const std::string& name) {
        std::ofstream{folder / "modules/qsfp28-sr4.json"} << R"({"map": "qsfp", "vendor_name": ")" << name << "\"}";
    };
    std::filesystem::create_directory(folder / "modules");
    write_module("MY OWN");
    plug_module("\"qsfp28-sr4\"");
    use([](const bus& b) {
        EXPECT_EQ(text_of(b.read(0x50, 148, 6)), "MY OWN");
        b.write(0x50, 93, {0x03});
    });
    use([](const bus& b) { EXPECT_EQ(b.read(0x50, 93, 1), (bytes_t{0x03})); });
    write_module("ANOTHER");
    use([](const bus& b) {
        EXPECT_EQ(text_of(b.read(0x50, 148, 7)), "ANOTHER");
        EXPECT_EQ(b.read(0x50, 93, 1), (bytes_t{0x00})) << "what was remembered was of the other one";
    });
}

TEST_F(i2c, two_modules_on_one_bus_at_once_collide)
{
    ::setenv("IVRA_VIRTUAL_TRACE", (folder / "trace").c_str(), 1);
    plug_board("xilinx_u200", R"({"cages": [{"module": "qsfp28-sr4", "bytes": {"22": "f5a0"}},
                                            {"module": "qsfp28-sr4", "bytes": {"22": "3c50"}}]})");
    run([] {
        const opened board;
        const controller c{board};
        c.set_pins(1);
        const bus b{c, 0};
        b.write(0x74, {0x03});
        EXPECT_EQ(b.read(0x50, 22, 2), (bytes_t{0xf5 & 0x3c, 0x00}));
        b.write(0x50, 93, {0x01});
        for (const std::uint8_t channel : bytes_t{0x01, 0x02}) {
            b.write(0x74, {channel});
            EXPECT_EQ(b.read(0x50, 93, 1), (bytes_t{0x01})) << "both were written";
        }
    });
    EXPECT_THAT(trace(), ::testing::Contains("ivra_i2c_bus_read_register(0000:01:00.0, 0x50, 0x16, 2) = 2: [34 00]"
                                             " (warning: several devices answered at once)"));
}

// ---- calls ----

TEST_F(i2c, the_trace_shows_the_bytes_of_every_transaction)
{
    ::setenv("IVRA_VIRTUAL_TRACE", (folder / "trace").c_str(), 1);
    plug_board("bittware_xupp3r", R"({"mac_eeprom": "MAC="})");
    run([] {
        const opened board;
        const controller c{board};
        c.set_pins(0x21);
        EXPECT_EQ(c.pins(), 0x21U);
        const bus b{c, 0};
        b.read(0x50, 0, 3);
        b.read(0x50, 2);
        b.write(0x50, {0x01});
        b.write(0x50, 0x02, {0xaa, 0xbb});
        EXPECT_FALSE(b.answers(0x1f));
    });
    const std::vector<std::string> lines = trace();
    const auto first = std::ranges::find_if(
        lines, [](const std::string& line) { return line.starts_with("ivra_i2c_write_control_pins"); });
    ASSERT_GE(lines.end() - first, 8);
    EXPECT_THAT(std::vector<std::string>(first, first + 8),
                ElementsAre("ivra_i2c_write_control_pins(0000:01:00.0, 0x21) = 0",
                            "ivra_i2c_read_control_pins(0000:01:00.0) = 8: 0x21",
                            "ivra_i2c_get_bus(0000:01:00.0, 0) = handle",
                            "ivra_i2c_bus_read_register(0000:01:00.0, 0x50, 0x0, 3) = 3: [4d 41 43]",
                            "ivra_i2c_bus_read(0000:01:00.0, 0x50, 2) = 2: [3d ff]",
                            "ivra_i2c_bus_write(0000:01:00.0, 0x50, [01]) = 1",
                            "ivra_i2c_bus_write_register(0000:01:00.0, 0x50, 0x2, [aa bb]) = 2",
                            "ivra_i2c_bus_read(0000:01:00.0, 0x1f, 1) = -1 ENXIO (No such device or address)"));
}

TEST_F(i2c, a_bus_refuses_what_is_no_transfer)
{
    plug_board("bittware_xupp3r", "{}");
    run([] {
        const opened board;
        const controller c{board};
        const bus b{c, 1};
        std::uint8_t byte = 0;
        EXPECT_FAILS(-1, EINVAL, ivra_i2c_bus_read(b.handle, 0x80, &byte, 1));
        EXPECT_FAILS(-1, EINVAL, ivra_i2c_bus_write(b.handle, 0xff, &byte, 1));
        EXPECT_FAILS(-1, EINVAL, ivra_i2c_bus_read_register(b.handle, 0x50, 0, nullptr, 1));
        EXPECT_FAILS(-1, EINVAL, ivra_i2c_bus_write_register(b.handle, 0x50, 0, nullptr, 1));
        EXPECT_EQ(ivra_i2c_bus_read(b.handle, 0x50, nullptr, 0), 0) << "is somebody there?";
    });
}

TEST_F(i2c, a_transfer_that_the_fault_plan_cuts_short_moves_that_many_bytes)
{
    plug_board("bittware_xupp3r", R"({"mac_eeprom": "MAC="})");
    plan(R"([{"call": "ivra_i2c_bus_read_register", "nth": 1, "short": 2},
             {"call": "ivra_i2c_bus_write", "nth": 1, "short": 1}])");
    run([] {
        const opened board;
        const controller c{board};
        c.set_pins(1);
        const bus b{c, 0};
        bytes_t bytes(4, 0xa5);
        EXPECT_EQ(ivra_i2c_bus_read_register(b.handle, 0x50, 0, bytes.data(), 4), 2);
        EXPECT_EQ(bytes, (bytes_t{'M', 'A', 0xa5, 0xa5}));
        const bytes_t written{0x01, 0x03};
        EXPECT_EQ(ivra_i2c_bus_write(b.handle, 0x50, written.data(), 2), 1);
        EXPECT_EQ(b.read(0x50, 1), (bytes_t{'A'}));
    });
}

TEST_F(i2c, a_bus_outlives_its_controllers_handle)
{
    plug_board("bittware_xupp3r", "{}");
    run([] {
        const opened board;
        ivra_i2c* handle = ivra_i2c_create(board.root);
        ivra_i2c_bus* b = ivra_i2c_get_bus(handle, 1);
        ivra_i2c_destroy(handle);
        std::uint8_t byte = 0;
        EXPECT_EQ(ivra_i2c_bus_read(b, 0x50, &byte, 1), 1);
        ivra_i2c_bus_destroy(b);
    });
}

} // namespace

} // namespace ivra::platform_tests
