// Modules in the first cage of a board of the virtual platform; each story is a process of its own.

#include "hw/i2c.h"
#include "module_text.h"
#include "support/i2c_trace.h"
#include "support/rack.h"
#include "support/root_core.h"
#include "telemetry/module.h"

#include <gtest/gtest.h>

#include <iostream>
#include <string>
#include <vector>

namespace ivra::bsp::telemetry {
namespace {

using calls_t = std::vector<std::string>;

// Every number is a raw value away from every other one.
const std::string sfp_module = R"({"map": "sfp", "vendor_name": "SAMPLE CO", "vendor_pn": "S-1", "vendor_sn": "S77",
    "date_code": "250418", "calibration": "internal", "temperature": 25.5, "vcc": 3.3, "tx_bias": 6, "tx_power": 0.5,
    "rx_power": 0.4})";
const std::string qsfp_module = R"({"map": "qsfp", "identifier": "0x11", "vendor_name": "SAMPLE CO",
    "vendor_pn": "Q-1", "temperature": -9.75, "vcc": 3.3, "rx_power": [0.1, 0.2, 0.3, 0.4], "tx_power": 0.9,
    "tx_bias": [2, 4, 6, 8], "bytes": {"93": "01", "00:220": "3c", "03:128": "4b00ec0046000000"}})";
const std::string qsfp_dd_module = R"({"map": "cmis", "identifier": "0x18", "vendor_name": "SAMPLE CO",
    "vendor_pn": "D-1", "temperature": -0.5, "vcc": 3.3, "tx_power": [1, 0, 0, 0, 0, 0, 0, 0],
    "tx_bias": [40, 0, 0, 0, 0, 0, 0, 0], "rx_power": [0.5, 0, 0, 0, 0, 0, 0, 0],
    "bytes": {"26": "00", "00:210": "fe", "02:128": "4b00fb0046000000", "10:128": "00"}})";

/// A board with this in its first cage.
class cage
{
public:
    explicit cage(const std::string& content, const std::string& faults = "")
    {
        rack_.plug("bittware_xupp3r", {{"i2c", R"({"cages": [)" + content + "]}"}});
        if (!faults.empty())
            rack_.faults(faults);
    }

    /// The module, when the host has written `page` before.
    std::string read(std::optional<std::uint8_t> page = std::nullopt)
    {
        return tests::printed(rack_, [&](const hw::core& root) {
            v6::i2c::bus bus = v6::i2c::i2c{root}.get_bus(1).value();
            if (page)
                bus.write_register(0x50, 127, &*page, 1);
            const module_t module = read_module(bus);
            std::cout << identity_of(module) << '\n' << measurements_of(module);
        });
    }

    /// What the last action did on the bus.
    calls_t calls() const
    {
        calls_t all = tests::i2c_calls(rack_);
        EXPECT_EQ(all.at(0), tests::get_bus(1));
        all.erase(all.begin());
        return all;
    }

private:
    tests::rack_t rack_;
};

std::string read_main(int reg, int size)
{
    return tests::read_registers(0x50, reg, size);
}

calls_t operator+(calls_t some, const calls_t& more)
{
    some.insert(some.end(), more.begin(), more.end());
    return some;
}

/// A page is selected, and whether it was is read.
calls_t select_page(const std::string& page)
{
    return {tests::write_register(0x50, 127, page), read_main(127, 1)};
}

std::string failed_at(const std::string& call, int nth, const std::string& effect = R"("errno": "EIO")")
{
    return R"({"call": "ivra_i2c_bus_)" + call + R"(_register", "nth": )" + std::to_string(nth) + ", " + effect + "}";
}

const std::string sfp_text = "SAMPLE CO|-|S-1|A|S77|250418|2025-04-18\n"
                             "temperature 25.5\nvoltage 3.3\n"
                             "lane 1\nrx power 0.0004\ntx power 0.0005\ntx bias 0.006\n";
const std::string qsfp_identity = "SAMPLE CO|-|Q-1|A|VRT000000001|260101|2026-01-01\n";
const std::string lanes_of_qsfp = "lane 1\nrx power 0.0001\ntx power 0.0009\ntx bias 0.002\n"
                                  "lane 2\nrx power 0.0002\ntx power 0.0009\ntx bias 0.004\n"
                                  "lane 3\nrx power 0.0003\ntx power 0.0009\ntx bias 0.006\n"
                                  "lane 4\nrx power 0.0004\ntx power 0.0009\ntx bias 0.008\n";
const std::string qsfp_text = qsfp_identity + "temperature -9.75 [-20 0 70 75]\nvoltage 3.3\n" + lanes_of_qsfp;
const std::string qsfp_dd_identity = "SAMPLE CO|-|D-1|A|VRT000000001|260101|2026-01-01\n";
const std::string qsfp_dd_text = qsfp_dd_identity + "temperature -0.5 [-5 0 70 75]\nvoltage 3.3\n"
                                                    "lane 1\nrx power 0.0005\ntx power 0.001\ntx bias 0.04\n";

const calls_t walk_of_sfp = {read_main(0, 1), read_main(20, 40), read_main(68, 27), tests::read_registers(0x51, 0, 40),
                             tests::read_registers(0x51, 96, 15)};
const calls_t walk_of_qsfp =
    calls_t{read_main(0, 1),   read_main(0, 3),   read_main(22, 6),   read_main(34, 24), read_main(86, 8),
            read_main(113, 1), read_main(127, 1), read_main(147, 39), read_main(196, 25)} +
    select_page("03") + calls_t{read_main(128, 24), read_main(176, 24)} + select_page("00");
const calls_t walk_of_qsfp_dd =
    calls_t{read_main(0, 1),   read_main(0, 4),   read_main(127, 1), read_main(129, 8), read_main(137, 8),
            read_main(145, 8), read_main(153, 8), read_main(161, 8), read_main(169, 8), read_main(177, 8),
            read_main(185, 5), read_main(210, 1), read_main(126, 1)} +
    select_page("01") + calls_t{read_main(153, 8), read_main(14, 4)} + select_page("02") +
    calls_t{read_main(128, 8), read_main(136, 8), read_main(176, 8), read_main(184, 8), read_main(192, 8)} +
    select_page("10") + calls_t{read_main(130, 1)} + select_page("11") +
    calls_t{read_main(128, 6), read_main(154, 8), read_main(170, 8), read_main(186, 8)} + select_page("00");

TEST(module_reader, takes_a_cage_where_nothing_answers_for_empty)
{
    for (const std::string content : {R"("empty")", R"("silent")"}) {
        cage c{content};
        EXPECT_EQ(c.read(), "-|-|-|-|-|-|-\nempty\n");
        EXPECT_EQ(c.calls(), calls_t{read_main(0, 1)});
    }
}

TEST(module_reader, fails_a_module_whose_identifier_cannot_be_read)
{
    EXPECT_EQ((cage{sfp_module, failed_at("read", 1)}.read()),
              "-|-|-|-|-|-|-\nfailed: Cannot read byte 0: Input/output error\n");
    EXPECT_EQ((cage{sfp_module, failed_at("read", 1, R"("short": 0)")}.read()),
              "-|-|-|-|-|-|-\nfailed: Cannot read byte 0: Input/output error\n");
    EXPECT_EQ((cage{sfp_module, failed_at("read", 1, R"("errno": "ETIMEDOUT")")}.read()),
              "-|-|-|-|-|-|-\nfailed: Cannot read byte 0: Connection timed out\n");
}

TEST(module_reader, reads_no_more_of_a_module_without_a_map)
{
    cage c{R"("prototype")"};
    EXPECT_EQ(c.read(), "-|-|-|-|-|-|-\nunsupported\n");
    EXPECT_EQ(c.calls(), calls_t{read_main(0, 1)});
}

TEST(module_reader, reads_an_sfp_and_writes_nothing)
{
    cage c{sfp_module};
    EXPECT_EQ(c.read(), sfp_text);
    EXPECT_EQ(c.calls(), walk_of_sfp);
}

TEST(module_reader, reads_the_constants_of_an_externally_calibrated_sfp)
{
    cage c{R"("sfp-external-calibration")"};
    // As it is; 254/256 x 32400 + 4; 0.3 x 1148 + 5, where 0.3 is one in single precision; 259/256 x 2951; as it is
    EXPECT_EQ(c.read(), "OLD HARBOUR|02-00-14|OH-1G-LX|2|OH09004711|090314|2009-03-14\n"
                        "temperature 38.75 [-45 -40 85 90]\n"
                        "voltage 3.2150875 [2.778525 2.9769625 3.572275 3.7707125]\n"
                        "lane 1\n"
                        "rx power 3.4940001368522646e-05 [2.000000059604645e-06 3.5000001192092896e-06 "
                        "0.0001508600059747696 0.00023879000946879387]\n"
                        "tx power 0.000298558203125 [9.0144140625e-05 0.00011351484375 0.00063839453125 "
                        "0.000803608203125]\n"
                        "tx bias 0.0126 [0.002 0.004 0.06 0.07]\n");
    calls_t walk = walk_of_sfp;
    walk.insert(walk.end() - 1, tests::read_registers(0x51, 56, 36));
    EXPECT_EQ(c.calls(), walk);
}

TEST(module_reader, reads_a_qsfp_and_selects_the_page_that_was_selected_before)
{
    cage c{qsfp_module};
    EXPECT_EQ(c.read(), qsfp_text);
    EXPECT_EQ(c.calls(), walk_of_qsfp);
    // On page 03 already: page 00 is selected for what is there, and then page 03 again.
    EXPECT_EQ(c.read(0x03), qsfp_text);
    const calls_t on_page_3 = calls_t{tests::write_register(0x50, 127, "03"),
                                      read_main(0, 1),
                                      read_main(0, 3),
                                      read_main(22, 6),
                                      read_main(34, 24),
                                      read_main(86, 8),
                                      read_main(113, 1),
                                      read_main(127, 1)} +
                              select_page("00") + calls_t{read_main(147, 39), read_main(196, 25)} + select_page("03") +
                              calls_t{read_main(128, 24), read_main(176, 24)};
    EXPECT_EQ(c.calls(), on_page_3);
}

TEST(module_reader, reads_a_qsfp_dd_by_eight_bytes_at_most)
{
    cage c{qsfp_dd_module};
    EXPECT_EQ(c.read(), qsfp_dd_text);
    EXPECT_EQ(c.calls(), walk_of_qsfp_dd);
    EXPECT_EQ(c.read(0x11), qsfp_dd_text);
    EXPECT_EQ(c.calls().back(), read_main(186, 8)) << "page 11 is the one that was selected";
}

TEST(module_reader, selects_no_page_of_a_flat_memory)
{
    const std::string bare = "temperature unsupported\nvoltage unsupported\n";
    cage cmis{R"("qsfpdd-flat")"};
    EXPECT_EQ(cmis.read(), "COPPERMOOR|02-00-16|CM-QDD-PC05|A|CM24-771204|240926|2024-09-26\n" + bare);
    cage qsfp_cage{
        R"({"map": "qsfp", "identifier": "0x11", "flat": true, "vendor_name": "SAMPLE CO", "vendor_pn": "Q-1",
                  "temperature": 25, "vcc": 3.3, "bytes": {"00:147": "a0"}})"};
    EXPECT_EQ(qsfp_cage.read(), qsfp_identity + "temperature 25\nvoltage 3.3\n");
    EXPECT_EQ(cmis.calls(), (calls_t{read_main(0, 1), read_main(0, 4), read_main(129, 8), read_main(137, 8),
                                     read_main(145, 8), read_main(153, 8), read_main(161, 8), read_main(169, 8),
                                     read_main(177, 8), read_main(185, 5), read_main(210, 1)}));
    EXPECT_EQ(qsfp_cage.calls(),
              (calls_t{read_main(0, 1), read_main(0, 3), read_main(22, 6), read_main(34, 24), read_main(86, 8),
                       read_main(113, 1), read_main(147, 39), read_main(196, 25)}));
}

TEST(module_reader, does_without_limits_where_a_cable_claims_pages)
{
    cage c{R"("qsfp28-copper")"};
    EXPECT_EQ(c.read(), "CABLEWRIGHT|02-00-13|CW-Q28-DA2|A|CW25020077|250203|2025-02-03\n"
                        "temperature unsupported\nvoltage unsupported\n");
    // Page 03 was refused, and page 00 is selected by the module itself.
    const calls_t calls = c.calls();
    EXPECT_EQ(calls_t(calls.end() - 2, calls.end()), select_page("03"));
}

/// A module that fails at one transfer: what is lost, and that the page is as it was.
std::string read_with_fault(const std::string& content, const std::string& fault, calls_t& calls)
{
    cage c{content, fault};
    const std::string text = c.read();
    calls = c.calls();
    return text;
}

TEST(module_reader, loses_by_a_failed_transfer_what_it_carries)
{
    calls_t calls;
    EXPECT_EQ(read_with_fault(qsfp_module, failed_at("read", 3), calls),
              qsfp_identity +
                  "failed: Cannot read bytes 22 to 27: Input/output error\n"
                  "temperature failed: Cannot read bytes 22 to 27: Input/output error\n"
                  "voltage failed: Cannot read bytes 22 to 27: Input/output error\n" +
                  lanes_of_qsfp);
    EXPECT_EQ(calls, walk_of_qsfp);
    EXPECT_EQ(read_with_fault(qsfp_module, failed_at("read", 3, R"("short": 5)"), calls),
              qsfp_identity +
                  "failed: Cannot read bytes 22 to 27: Input/output error\n"
                  "temperature failed: Cannot read bytes 22 to 27: Input/output error\n"
                  "voltage failed: Cannot read bytes 22 to 27: Input/output error\n" +
                  lanes_of_qsfp);
    EXPECT_EQ(read_with_fault(qsfp_module, failed_at("read", 8), calls),
              "-|-|-|-|VRT000000001|260101|2026-01-01\n"
              "failed: Cannot read bytes 147 to 185 of page 00h: Input/output error\n"
              "temperature -9.75 [-20 0 70 75]\nvoltage 3.3\n" +
                  lanes_of_qsfp);
    EXPECT_EQ(calls, walk_of_qsfp);
    const std::string of_a2 = "failed: Cannot read bytes 96 to 110 of A2h: Input/output error\n";
    EXPECT_EQ(read_with_fault(sfp_module, failed_at("read", 5), calls),
              "SAMPLE CO|-|S-1|A|S77|250418|2025-04-18\n" + of_a2 + "temperature " + of_a2 + "voltage " + of_a2 +
                  "lane 1\nrx power " + of_a2 + "tx power " + of_a2 + "tx bias " + of_a2);
}

TEST(module_reader, selects_the_page_again_after_a_page_that_failed)
{
    calls_t calls;
    const std::string no_limits = qsfp_identity +
                                  "failed: Cannot select page 03h: Input/output error\n"
                                  "temperature -9.75\nvoltage 3.3\n" +
                                  lanes_of_qsfp;
    // The first write selects page 03; what is behind the failure is not asked for, and page 00 is selected again.
    EXPECT_EQ(read_with_fault(qsfp_module, failed_at("write", 1), calls), no_limits);
    EXPECT_EQ(calls_t(calls.end() - 3, calls.end()),
              calls_t{tests::write_register(0x50, 127, "03")} + select_page("00"));
    // The read that shows whether page 03 was selected.
    EXPECT_EQ(read_with_fault(qsfp_module, failed_at("read", 10), calls), no_limits);
    EXPECT_EQ(calls_t(calls.end() - 4, calls.end()), select_page("03") + select_page("00"));
    // Without the page that is selected none is selected: it could not be selected again.
    EXPECT_EQ(read_with_fault(qsfp_module, failed_at("read", 7, R"("errno": "ENXIO")"), calls),
              "-|-|-|-|-|-|-\nfailed: Cannot select page 00h: No such device or address\n"
              "temperature -9.75 [-20 0 70 75]\nvoltage 3.3\n"
              "lane 1\nrx power 0.0001\ntx power failed: Cannot select page 00h: No such device or address\n"
              "tx bias 0.002\n"
              "lane 2\nrx power 0.0002\ntx power failed: Cannot select page 00h: No such device or address\n"
              "tx bias 0.004\n"
              "lane 3\nrx power 0.0003\ntx power failed: Cannot select page 00h: No such device or address\n"
              "tx bias 0.006\n"
              "lane 4\nrx power 0.0004\ntx power failed: Cannot select page 00h: No such device or address\n"
              "tx bias 0.008\n");
    EXPECT_EQ(calls_t(calls.end() - 2, calls.end()), select_page("00"));
}

TEST(module_reader, says_which_page_it_could_not_select_again)
{
    calls_t calls;
    EXPECT_EQ(read_with_fault(qsfp_module, failed_at("write", 2), calls),
              qsfp_identity +
                  "! The page that was selected before, 00h, is not selected again: Cannot select page 00h: "
                  "Input/output error\n"
                  "temperature -9.75 [-20 0 70 75]\nvoltage 3.3\n" +
                  lanes_of_qsfp);
}

TEST(module_reader, gives_a_module_up_that_fails_three_times_in_a_row)
{
    cage c{qsfp_dd_module, R"({"call": "ivra_i2c_bus_read_register", "from": 19, "errno": "EIO"})"};
    // Limits of voltage, transmitted power and bias; no page is selected any more but the first one.
    const std::string text = c.read();
    const calls_t calls = c.calls();
    EXPECT_EQ(calls_t(calls.end() - 5, calls.end()),
              (calls_t{read_main(136, 8), read_main(176, 8), read_main(184, 8)} + select_page("00")));
    const std::string lost = "the module has failed 3 times in a row\n";
    EXPECT_EQ(text, qsfp_dd_identity +
                        "failed: Cannot read bytes 136 to 143 of page 02h: Input/output error\n"
                        "! The page that was selected before, 00h, is not selected again: Cannot select page 00h: "
                        "Input/output error\n"
                        "temperature -0.5 [-5 0 70 75]\nvoltage 3.3\nlane 1 off\n"
                        "rx power failed: Cannot read bytes 186 to 193 of page 11h: " +
                        lost + "tx power failed: Cannot read bytes 154 to 161 of page 11h: " + lost +
                        "tx bias failed: Cannot read bytes 170 to 177 of page 11h: " + lost);
}

TEST(module_reader, goes_on_with_a_module_that_fails_now_and_then)
{
    std::string faults = failed_at("read", 3);
    for (const int nth : {4, 6, 8, 9})
        faults += ", " + failed_at("read", nth);
    calls_t calls;
    read_with_fault(qsfp_module, faults, calls);
    EXPECT_EQ(calls, walk_of_qsfp);
}

TEST(module_reader, leaves_no_module_on_another_page_whatever_fails)
{
    for (const std::string& content : {qsfp_module, qsfp_dd_module})
        for (const std::string call : {"read", "write"})
            for (int nth = 1; nth <= 45; ++nth) {
                cage c{content, failed_at(call, nth)};
                const std::string text = c.read();
                calls_t writes;
                for (const std::string& each : c.calls())
                    if (each.starts_with("bus_write"))
                        writes.push_back(each);
                if (!writes.empty()) {
                    EXPECT_EQ(writes.back(), tests::write_register(0x50, 127, "00")) << call << nth;
                }
                EXPECT_EQ(text.find("terminate"), std::string::npos);
            }
}

} // namespace
} // namespace ivra::bsp::telemetry
