#include "commands.h"
#include "output.h"

#include "devices/module/captured.h"
#include "rack/change_words.h"
#include "rack/fault_plan.h"
#include "rack/model.h"
#include "rack/rack.h"
#include "json/codec.h"
#include "json/names.h"
#include "json/text.h"

#include <algorithm>
#include <charconv>
#include <cstddef>
#include <exception>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <system_error>
#include <vector>

namespace ivra::virtual_platform {

namespace {

constexpr int exit_success = 0;
constexpr int exit_failure = 1;
constexpr int exit_usage = 64;

/// The words of a command line after the command.
struct words_t
{
    std::vector<std::string> arguments;
    std::optional<std::size_t> count; ///< of --count
    std::vector<std::string> command; ///< behind "--", of a command that runs another one
    std::optional<std::string> dump;  ///< of --dump
};

std::string count_of(std::size_t count, const std::string& thing)
{
    return (count == 0 ? "no" : std::to_string(count)) + ' ' + thing + (count == 1 ? "" : "s");
}

void tell_of_good_file(const std::string& file, const std::string& what, const std::vector<std::string>& remarks)
{
    print(printable(file) + ": good, " + what + '\n');
    for (const std::string& remark : remarks)
        print_error(remark);
}

/// A list is a fault plan.
void check_file(const std::string& file)
{
    const json::value_t document = json::parse(read_file(file), file, rack_sentence);
    if (is_model_file(file) && document.as<json::object_t>() != nullptr &&
        json::find(document, "accelerators") == nullptr)
        return tell_of_good_file(file, "a model", check_model(file));
    if (document.as<json::list_t>() != nullptr)
        return tell_of_good_file(file, count_of(fault_plan{document, file}.size(), "rule"), {});
    std::vector<std::string> remarks;
    const rack_t rack = read_rack(document, file, &remarks);
    tell_of_good_file(file, count_of(rack.accelerators.size(), "accelerator"), remarks);
}

int check(const words_t& words)
{
    int status = exit_success;
    for (const std::string& file : words.arguments) {
        try {
            check_file(file);
        } catch (const file_error& error) {
            print_error(error.what());
            status = exit_failure;
        }
    }
    return status;
}

int show_command(const words_t& words)
{
    show(load_rack(words.arguments.front()));
    return exit_success;
}

int expand_command(const words_t& words)
{
    print(expand(load_rack(words.arguments.front())));
    return exit_success;
}

int reset(const words_t& words)
{
    if (words.arguments.empty())
        reset_all();
    else
        reset_rack(words.arguments.front());
    return exit_success;
}

int bmc_command(const words_t& words)
{
    serve_bmc(load_rack(words.arguments.front()), words.arguments.back());
    return exit_success;
}

int change_command(const words_t& words)
{
    change_board(load_rack(words.arguments[0]), words.arguments[1],
                 {words.arguments.begin() + 2, words.arguments.end()});
    return exit_success;
}

int play_command(const words_t& words)
{
    play(load_rack(words.arguments[0]), words.arguments[1]);
    return exit_success;
}

int run_command_on_rack(const words_t& words)
{
    return run_on_rack(words.arguments.empty() ? std::nullopt : std::optional{words.arguments.front()}, words.command);
}

/// "a, b, c"
std::string joined(const std::vector<std::string>& words)
{
    std::string text;
    for (const std::string& word : words)
        text += (text.empty() ? "" : ", ") + word;
    return text;
}

int new_rack(const words_t& words)
{
    const std::vector<std::string> known = known_models();
    for (const std::string& name : words.arguments)
        if (std::ranges::find(known, name) == known.end())
            throw usage_error{"unknown model \"" + name + "\", expected one of " + joined(known)};
    std::optional<module_t> module;
    if (words.dump) {
        for (const accelerator_t& board : default_boards(words.arguments, words.arguments.size()))
            if (board.i2c.cages.empty())
                throw usage_error{"a board of the model \"" + board.model + "\" has no cage for --dump"};
        module = load_captured(*words.dump);
    }
    print(starter(words.arguments, words.count.value_or(words.arguments.size()), module));
    return exit_success;
}

int schema(const words_t& words)
{
    const std::string& what = words.arguments.front();
    if (what != "rack" && what != "faults")
        throw usage_error{"unknown schema \"" + what + "\", expected rack or faults"};
    print(json::laid_out(what == "rack" ? rack_schema() : fault_plan_schema()));
    return exit_success;
}

int help_command(const words_t& words);

struct command_t
{
    std::string_view name;
    std::string_view arguments;
    std::string_view summary;
    std::string_view help;
    std::size_t fewest, most; ///< arguments
    bool has_count;
    bool has_command;
    int (*run)(const words_t& words);
};

constexpr std::size_t any_number = 1000;

// clang-format off
constexpr command_t commands[] = {
    {"check", "FILE...", "Say whether racks and fault plans are good",
     "Reads each rack or fault plan, or model in a folder \"models\", and checks it.\n"
     "The first mistake of each is said on standard error: the file, the place in\n"
     "it, and what was expected there. So is what is good but hardly meant: a value\n"
     "that a sensor cannot show, a device that nobody can reach, a model that is\n"
     "almost a known one. The exit status is 0 when every file is good, else 1.\n",
     1, any_number, false, false, &check},
    {"show", "RACK", "Show what is plugged where, and its state now",
     "Shows every accelerator of the rack: what it is, what its flash and its\n"
     "design hold, and what it remembers from being used.\n",
     1, 1, false, false, &show_command},
    {"expand", "RACK", "Print the rack with every default filled in",
     "Prints a rack file that says everything: what the given one leaves out has\n"
     "its default. The result is a rack of the same accelerators.\n",
     1, 1, false, false, &expand_command},
    {"reset", "[RACK]", "Make the boards of a rack, or all, forget",
     "Removes what the boards of the rack remember, as a factory reset would; the\n"
     "rack file need not exist any more. Without a rack: the boards of all racks.\n"
     "Says what was removed. A folder that holds anything else is left alone.\n",
     0, 1, false, false, &reset},
    {"new", "[--count=N] [--dump=FILE] MODEL...", "Print a rack to start from",
     "Prints a rack file with a board of each model, ready to be edited.\n"
     "\n"
     "  --count=N    N boards, up to 65536, of the models in turn\n"
     "  --dump=FILE  with the module of the dump in FILE in the first cage\n",
     1, any_number, true, false, &new_rack},
    {"run", "[RACK] [-- COMMAND...]", "Run a command, or a shell, on simulated boards",
     "Runs a command whose platform libraries are the virtual ones, with the boards\n"
     "of the rack, or else of the showcase; without a command, a shell. It sets\n"
     "LD_LIBRARY_PATH, PATH and IVRA_VIRTUAL_RACK. What forgets them would find the\n"
     "real boards: sudo and the like go in front of ivra-virtual.\n"
     "\n"
     "  ivra-virtual run -- ivra-bsp board list\n"
     "\n"
     "The exit status is the command's; 126 or 127 when it cannot be run.\n",
     0, 1, false, true, &run_command_on_rack},
    {"schema", "rack|faults", "Print the JSON Schema of racks or fault plans",
     "Prints the JSON Schema (draft 4) of racks or of fault plans, which an editor\n"
     "can use. It cannot say everything: check finds more.\n",
     1, 1, false, false, &schema},
    {"change", "RACK ACCELERATOR WHAT...", "Change a board while it is used",
     "Changes what the rack says of an accelerator, given by name, uid or index, at\n"
     "once and for every process that has it open, until reset undoes all of it.\n"
     "The rack file stays as it is; show tells what differs from it.\n",
     3, any_number, false, false, &change_command},
    {"play", "RACK FILE", "Change boards at times that a file says",
     "Sets changes that come at their times, counted from now, and returns at once;\n"
     "show tells which are to come, and a board's reset drops them. A line of FILE is\n"
     "a time, an accelerator and words as change has them:\n"
     "\n"
     "  0 s    virtual-u200    sensor FPGA_TEMP 85 C   # hot\n"
     "  2.5 s  virtual-xupp3r  silent on\n",
     2, 2, false, false, &play_command},
    {"bmc", "RACK ACCELERATOR", "Let IPMI programs talk to a board's BMC",
     "Serves the BMC of an accelerator, given by name, uid or index, on a\n"
     "pseudo-terminal, and prints its name, for example for\n"
     "  ipmitool -I serial-terminal -D NAME:115200 sensor\n"
     "until it gets SIGINT or SIGTERM.\n",
     2, 2, false, false, &bmc_command},
    {"help", "[COMMAND]", "Show this help, or that of a command",
     "Shows what --help shows.\n",
     0, 1, false, false, &help_command},
};
// clang-format on

std::string program_help()
{
    constexpr std::size_t summary_column = 30;
    std::string text = "USAGE\n  ivra-virtual COMMAND [ARGUMENT...]\n\n"
                       "Works with racks: the files that describe the simulated boards of the virtual\n"
                       "platform.\n\nCOMMANDS\n";
    for (const command_t& command : commands) {
        std::string usage = "  " + std::string{command.name} + ' ' + std::string{command.arguments};
        if (usage.size() + 2 > summary_column)
            usage = usage + '\n' + std::string(summary_column, ' ');
        else
            usage.resize(summary_column, ' ');
        text += usage + std::string{command.summary} + '\n';
    }
    return text + "\nOPTIONS\n"
                  "  -h, --help                  Show this help, or that of the command before it\n"
                  "  -V, --version               Show the version\n\n"
                  "ENVIRONMENT\n"
                  "  IVRA_VIRTUAL_STATE          Folder of what boards remember; if not set,\n"
                  "                              ivra-virtual in the user's state folder\n";
}

/// The models that come with the platform, several a line.
std::string model_list()
{
    constexpr std::size_t widest_line = 78;
    std::string text = "\nMODELS";
    std::size_t width = widest_line;
    for (const std::string& name : known_models()) {
        width += 1 + name.size();
        if (width > widest_line) {
            text += "\n ";
            width = 2 + name.size();
        }
        text += ' ' + name;
    }
    return text + '\n';
}

std::string command_help(const command_t& command)
{
    return "USAGE\n  ivra-virtual " + std::string{command.name} + ' ' + std::string{command.arguments} + "\n\n" +
           std::string{command.help} + (command.run == &new_rack ? model_list() : "") +
           (command.run == &change_command ? "\nWHAT\n" + known_changes() : "");
}

/// The command of this name. Throws usage_error when there is none.
const command_t& find_command(const std::string& name)
{
    const auto* const command = std::ranges::find(commands, name, &command_t::name);
    if (command != std::end(commands))
        return *command;
    std::vector<std::string> known;
    for (const command_t& other : commands)
        known.emplace_back(other.name);
    const std::vector<std::string_view> close = json::close_names(known, name);
    throw usage_error{(name.starts_with('-') ? "unknown option \"" : "unknown command \"") + name + '"' +
                      (close.empty() ? "" : "; is " + json::codec::enumeration(close) + " meant?")};
}

int help_command(const words_t& words)
{
    print(words.arguments.empty() ? program_help() : command_help(find_command(words.arguments.front())));
    return exit_success;
}

std::size_t parse_count(const std::string& text)
{
    std::size_t count = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), count);
    if (error != std::errc{} || end != text.data() + text.size() || count > 65536)
        throw usage_error{"--count is \"" + text + "\", expected a number from 0 to 65536"};
    return count;
}

bool is_help(std::string_view word)
{
    return word == "--help" || word == "-h";
}

/// Runs a command with the words after its name. Throws usage_error, and what the command throws.
int run_command(const command_t& command, const std::vector<std::string>& words)
{
    constexpr std::string_view count_option = "--count";
    constexpr std::string_view dump_option = "--dump";
    words_t parsed;
    bool options_ended = false;
    for (std::size_t at = 0; at < words.size(); ++at) {
        const std::string& word = words[at];
        const bool is_number = word.find_first_of("0123456789") == 1; // "-5"
        if (options_ended || word.size() < 2 || word[0] != '-' || is_number) {
            parsed.arguments.push_back(word);
        } else if (word == "--" && command.has_command) {
            parsed.command.assign(words.begin() + static_cast<std::ptrdiff_t>(at) + 1, words.end());
            break;
        } else if (word == "--") {
            options_ended = true;
        } else if (is_help(word)) {
            print(command_help(command));
            return exit_success;
        } else if (command.has_count && word.starts_with("--count=")) {
            parsed.count = parse_count(word.substr(count_option.size() + 1));
        } else if (command.has_count && word == count_option) {
            if (++at == words.size())
                throw usage_error{"--count: expected a number after it"};
            parsed.count = parse_count(words[at]);
        } else if (command.has_count && word.starts_with("--dump=")) {
            parsed.dump = word.substr(dump_option.size() + 1);
        } else if (command.has_count && word == dump_option) {
            if (++at == words.size())
                throw usage_error{"--dump: expected a file after it"};
            parsed.dump = words[at];
        } else {
            throw usage_error{"unknown option \"" + word + '"'};
        }
    }
    if (parsed.arguments.size() < command.fewest)
        throw usage_error{"expected " + std::string{command.arguments}};
    if (parsed.arguments.size() > command.most)
        throw usage_error{"unexpected argument \"" + parsed.arguments[command.most] + '"' +
                          (command.has_command ? ", a command stands behind \"--\"" : "")};
    return command.run(parsed);
}

int usage(const std::string& message, std::string_view command)
{
    const std::string name = command.empty() ? "" : std::string{command} + ": ";
    const std::string help = command.empty() ? "" : ' ' + std::string{command};
    print_error(name + message);
    print_error("try \"ivra-virtual" + help + " --help\"");
    return exit_usage;
}

int run(const std::vector<std::string>& words)
{
    if (words.empty())
        return usage("expected a command", "");
    const std::string& word = words.front();
    if (is_help(word)) {
        print(program_help());
        return exit_success;
    }
    if (word == "-V" || word == "--version") {
        print("ivra-virtual " IVRA_VERSION "\n");
        return exit_success;
    }
    std::string_view name; // of the command, once it is known
    try {
        const command_t& command = find_command(word);
        name = command.name;
        return run_command(command, {words.begin() + 1, words.end()});
    } catch (const usage_error& error) {
        return usage(error.what(), name);
    } catch (const file_error& error) {
        print_error(error.what());
    } catch (const std::exception& error) {
        print_error(word + ": " + error.what());
    }
    return exit_failure;
}

} // namespace

} // namespace ivra::virtual_platform

int main(int argument_count, char** arguments)
{
    using namespace ivra::virtual_platform;
    prepare_output();
    const int status = run({arguments + std::min(argument_count, 1), arguments + argument_count});
    return finish_output() ? status : exit_failure;
}
