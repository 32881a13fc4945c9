#include "story.h"

#include <chrono>
#include <cstdlib>
#include <fstream>
#include <initializer_list>
#include <thread>

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

std::vector<int> buses_of(const controller& c)
{
    std::vector<int> found;
    for (int index = 0; index < 256; ++index) {
        errno = 0;
        ivra_i2c_bus* handle = ivra_i2c_get_bus(c.handle, static_cast<std::uint8_t>(index));
        if (handle == nullptr)
            EXPECT_EQ(errno, ENODEV);
        else
            found.push_back(index);
        ivra_i2c_bus_destroy(handle);
    }
    return found;
}

/// Addresses of a bus that acknowledge.
std::vector<int> answering(const bus& b)
{
    std::vector<int> found;
    for (int address = 0; address < 128; ++address)
        if (b.answers(static_cast<std::uint8_t>(address)))
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
            EXPECT_THAT(buses_of(c), ElementsAre(0));
            const bus b{c, 0};
            EXPECT_THAT(answering(b), ElementsAre());
            c.set_pins(0xfe);
            EXPECT_THAT(answering(b), ElementsAre());
            c.set_pins(0x01);
            EXPECT_THAT(answering(b), ElementsAre(0x74));
            for (const std::uint8_t channel : bytes_t{0x01, 0x02}) {
                b.write(0x74, {channel});
                EXPECT_THAT(answering(b), ElementsAre(0x50, 0x51, 0x74));
            }
            b.write(0x74, {0xfc});
            EXPECT_THAT(answering(b), ElementsAre(0x74));
            b.write(0x74, {0x01});
            c.set_pins(0x00);
            EXPECT_THAT(answering(b), ElementsAre());
            c.set_pins(0x01);
            EXPECT_THAT(b.read(0x74, 1), ElementsAre(0x01)) << "it was not switched off, only out of reach";
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
            EXPECT_THAT(buses_of(c), ElementsAre(0, 1, 2, 3, 4, 5));
            const bus first{c, 0};
            EXPECT_THAT(answering(first), ElementsAre());
            for (const std::uint8_t index : bytes_t{1, 2, 3, 4})
                EXPECT_THAT(answering(bus{c, index}), ElementsAre(0x50, 0x51)) << "cages answer without the pin";
            EXPECT_THAT(answering(bus{c, 5}), ElementsAre()) << "it has no multiplexer";
            c.set_pins(0x01);
            EXPECT_THAT(answering(first), ElementsAre(0x50));
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
        EXPECT_THAT(answering(b), ElementsAre(0x72));
        b.write(0x72, {0x01});
        EXPECT_THAT(answering(b), ElementsAre(0x50, 0x51, 0x72));
        for (const std::uint8_t channel : bytes_t{0x02, 0x04}) {
            b.write(0x72, {channel});
            EXPECT_THAT(answering(b), ElementsAre(0x72)) << "that cage is silent";
        }
        b.write(0x72, {0x08});
        EXPECT_THAT(answering(b), ElementsAre(0x50, 0x51, 0x72)) << "the cage left out is empty";
        b.write(0x72, {0xf0});
        EXPECT_THAT(answering(b), ElementsAre(0x72));
    });
}

TEST_F(i2c, an_xupvv8_has_everything_behind_one_multiplexer_and_pin_0_is_the_eeproms_alone)
{
    plug_board("bittware_xupvv8", R"({"mac_eeprom": "MAC=02:00:00:00:30:00"})");
    run([] {
        const opened board;
        const controller c{board};
        EXPECT_THAT(buses_of(c), ElementsAre(0));
        const bus b{c, 0};
        EXPECT_THAT(answering(b), ElementsAre(0x72));
        for (const std::uint8_t channel : bytes_t{0x10, 0x20, 0x40, 0x80}) {
            b.write(0x72, {channel});
            EXPECT_THAT(answering(b), ElementsAre(0x50, 0x51, 0x72));
        }
        b.write(0x72, {0x01});
        EXPECT_THAT(answering(b), ElementsAre(0x72));
        c.set_pins(0x01);
        EXPECT_THAT(answering(b), ElementsAre(0x50, 0x72));
        EXPECT_EQ(text_of(b.read(0x50, 0, 21)), "MAC=02:00:00:00:30:00");
        b.write(0x72, {0x00});
        EXPECT_THAT(answering(b), ElementsAre(0x72));
    });
}

TEST_F(i2c, a_board_that_nobody_knows_has_neither_pins_nor_buses)
{
    plug_board("unknown_model", "{}");
    run([] {
        const opened board;
        const controller c{board};
        std::uint32_t word = 0;
        EXPECT_EQ(ivra_i2c_read_control_pins(c.handle, &word), 0);
        EXPECT_THAT(buses_of(c), ElementsAre());
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
        EXPECT_THAT(b.read(0x72, 1), ElementsAre(0x00)) << "no channel at the start";
        b.write(0x72, {0x10, 0x40});
        EXPECT_THAT(b.read(0x72, 3), ElementsAre(0x40, 0x40, 0x40));
        b.write(0x72, {});
    });
    run([] {
        const opened board;
        const controller c{board};
        const bus b{c, 0};
        EXPECT_THAT(b.read(0x72, 1), ElementsAre(0x40));
        EXPECT_THAT(b.read(0x72, 0x20, 1), ElementsAre(0x20)) << "it has no registers: this is a byte as any other";
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
        EXPECT_THAT(b.read(0x50, 4), ElementsAre('C', '=', 0xff, 0xff)) << "erased behind its contents";
        b.write(0x50, {0x02});
        EXPECT_THAT(b.read(0x50, 1), ElementsAre('C'));
        b.write(0x50, 0x00, {'X', 'Y'});
        EXPECT_THAT(b.read(0x50, 2), ElementsAre('C', '=')) << "counted on, but nothing was stored";
        EXPECT_EQ(text_of(b.read(0x50, 0, 4)), "MAC=");
        EXPECT_THAT(b.read(0x50, 0xff, 2), ElementsAre(0xff, 'M')) << "the last byte, and round";
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
        EXPECT_THAT(empty.read(0x50, 0, 3), ElementsAre(0xff, 0xff, 0xff));
        empty.write(0x50, 127, {0x03});
        EXPECT_THAT(empty.read(0x50, 127, 1), ElementsAre(0xff));
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
        EXPECT_THAT(buses_of(c), ElementsAre(3, 7));
        EXPECT_THAT(answering(bus{c, 3}), ElementsAre());
        const bus b{c, 7};
        EXPECT_THAT(answering(b), ElementsAre(0x70));
        b.write(0x70, {0x04});
        EXPECT_THAT(answering(b), ElementsAre(0x70, 0x71));
        b.write(0x71, {0x80});
        c.set_pins(0x04);
        EXPECT_THAT(answering(b), ElementsAre(0x33, 0x70, 0x71));
        EXPECT_EQ(text_of(b.read(0x33, 0, 5)), "other");
        b.write(0x70, {0x03});
        EXPECT_THAT(answering(b), ElementsAre(0x70)) << "what is behind goes with the multiplexer";
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
        EXPECT_THAT(b.read(0x50, 1), ElementsAre(0x3c & 0x0f)) << "the cage is empty: it pulls nothing down";
        b.write(0x50, {0x00});
        EXPECT_THAT(b.read(0x51, 1), ElementsAre(0xff));
    });
    EXPECT_THAT(trace(), ::testing::IsSupersetOf({
                             "ivra_i2c_bus_write(0000:01:00.0, 0x50, [00 3c]) = 2"
                             " (warning: several devices answered at once)"s,
                             "ivra_i2c_bus_read(0000:01:00.0, 0x50, 1) = 1: [0c]"
                             " (warning: several devices answered at once)"s,
                             "ivra_i2c_bus_read(0000:01:00.0, 0x51, 1) = 1: [ff]"s,
                         }));
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
        EXPECT_THAT(bytes, ElementsAre('M', 'A', 0xa5, 0xa5));
        const bytes_t written{0x01, 0x03};
        EXPECT_EQ(ivra_i2c_bus_write(b.handle, 0x50, written.data(), 2), 1);
        EXPECT_THAT(b.read(0x50, 1), ElementsAre('A'));
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
