// Every command line on every model, with every platform call that can fail: what has to hold whatever happens.
//   sweep --seed N --count N [--jobs N]      so many of them, which the seed chooses
//   sweep --all [--jobs N]                   all of them
//   sweep --run "MODEL | WORDS | RULE"       one of them, shown in full

#include "cases.h"
#include "properties.h"

#include "support/rack.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <iostream>
#include <random>
#include <set>
#include <stdexcept>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>
#include <vector>

#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

int readings_main(int argc, char** argv);

/// In place of libc's: after a sleep by the clock of a run nobody is waiting but strangers, who would make it last.
extern "C" __attribute__((visibility("default"))) int sched_yield() noexcept
{
    return 0;
}

namespace ivra::tests {
namespace {

struct choice_t
{
    std::size_t seed = 1;
    std::size_t count = 1000; ///< 0: all
    std::size_t jobs = 1;
    std::string line; ///< only this one
};

/// The line that repeats a run.
std::string line_of(const story_t& story, const std::string& rule)
{
    return story.model + " | " + story.words + " | " + rule;
}

/// False, having told it, when something is wrong.
bool is_good(const story_t& story, const std::string& rule, const record_t& whole, const record_t& record)
{
    const std::vector<std::string> complaints = complaints_of(story, rule, whole, record);
    std::string text;
    for (const std::string& complaint : complaints)
        text += complaint + "\n";
    if (!text.empty())
        std::cout << text + "  sweep --run '" + line_of(story, rule) + "'\n" << std::flush;
    return text.empty();
}

int show_one(const std::string& line)
{
    const std::size_t first = line.find(" | "), second = line.find(" | ", first + 3);
    if (first == std::string::npos || second == std::string::npos)
        throw std::runtime_error{"expected MODEL | WORDS | RULE"};
    const story_t story{line.substr(0, first), line.substr(first + 3, second - first - 3)};
    const std::string rule = line.substr(second + 3);
    stage stage;
    const record_t whole = stage.play(story, "");
    const record_t record = stage.play(story, rule);
    for (const std::string& call : record.trace)
        std::cout << call << '\n';
    for (const auto& [title, shown] : {std::pair{"without a fault", &whole}, {"with the fault", &record}})
        std::cout << "---- " << title << ": status " << shown->run.status << ", "
                  << std::chrono::duration<double>{shown->time}.count() << " s; standard output:\n"
                  << shown->run.out << "standard error:\n"
                  << shown->run.err << shown->board;
    return is_good(story, rule, whole, record) ? 0 : 1;
}

/// The documents of runs that differ, each with the line that repeats it.
class documents
{
public:
    void add(const story_t& story, const std::string& rule, const record_t& record)
    {
        if (!story.is_json() || story.is_help() || record.is_killed())
            return;
        std::string document = record.run.out;
        std::ranges::replace(document, '\n', ' ');
        if (seen_.insert(document).second)
            lines_ += (story.is_readings() ? "readings\t" : "board\t") + line_of(story, rule) + '\t' + document + '\n';
    }

    /// Whether they are what their schemas say.
    bool are_good() const
    {
        std::FILE* judge =
            ::popen("python3 '" IVRA_SWEEP_JUDGE "' '" IVRA_BOARD_SCHEMA "' '" IVRA_READINGS_SCHEMA "'", "we");
        if (judge == nullptr)
            throw std::system_error{errno, std::generic_category(), "popen"};
        const bool is_written = std::fwrite(lines_.data(), 1, lines_.size(), judge) == lines_.size();
        return ::pclose(judge) == 0 && is_written;
    }

private:
    std::set<std::string> seen_;
    std::string lines_;
};

/// Every `jobs`th story from `job` on.
bool sweep_job(const choice_t& choice, std::size_t job)
{
    const auto start_time = std::chrono::steady_clock::now();
    ::prctl(PR_SET_CHILD_SUBREAPER, 1);
    std::vector<story_t> stories = make_stories();
    std::mt19937_64 random{choice.seed};
    const auto below = [&](std::size_t end) { return static_cast<std::size_t>(random() % end); };
    std::size_t rules_a_story = SIZE_MAX;
    if (choice.count != 0) {
        constexpr std::size_t least = 5;
        rules_a_story = std::max(least, (choice.count + stories.size() - 1) / stories.size());
        for (std::size_t i = stories.size(); i > 1; --i)
            std::swap(stories[i - 1], stories[below(i)]);
    }
    stage stage;
    documents documents;
    constexpr std::size_t progress = 5000;
    std::size_t runs = 0, told = 0, possible = 0, bad = 0;
    for (std::size_t i = 0, left = choice.count; i < stories.size() && (choice.count == 0 || left != 0); ++i) {
        left -= std::min(left, rules_a_story);
        if (i % choice.jobs != job)
            continue;
        random.seed(choice.seed + i); // whatever the number of jobs
        const story_t& story = stories[i];
        if (choice.count == 0 && runs >= told + progress) {
            told = runs;
            std::cout << "Job " + std::to_string(job) + ": " + std::to_string(runs) + " runs, up to " + story.model +
                             " | " + story.words + '\n'
                      << std::flush;
        }
        const record_t whole = stage.play(story, "");
        std::vector<std::string> rules = make_rules(story, whole);
        possible += 1 + rules.size();
        const std::size_t chosen = std::min(rules_a_story, rules.size());
        for (std::size_t at = 0; chosen < rules.size() && at < chosen; ++at)
            std::swap(rules[at], rules[at + below(rules.size() - at)]);
        rules.resize(chosen);
        const auto look = [&](const std::string& rule, const record_t& record) {
            ++runs;
            bad += is_good(story, rule, whole, record) ? 0 : 1;
            documents.add(story, rule, record);
        };
        look("", whole);
        for (const std::string& rule : rules)
            look(rule, stage.play(story, rule));
    }
    const bool are_documents_good = documents.are_good();
    const std::chrono::duration<double> time = std::chrono::steady_clock::now() - start_time;
    std::cout << std::to_string(runs) + " runs of " + std::to_string(possible) + " in " + std::to_string(time.count()) +
                     " s, " + std::to_string(bad) + " bad\n"
              << std::flush;
    return bad == 0 && are_documents_good;
}

int sweep(const choice_t& choice)
{
    std::vector<::pid_t> processes;
    for (std::size_t job = 0; job < choice.jobs; ++job) {
        const ::pid_t process = ::fork();
        if (process == 0)
            std::exit(sweep_job(choice, job) ? 0 : 1);
        processes.push_back(process);
    }
    bool is_all_good = true;
    for (const ::pid_t process : processes) {
        int status = 0;
        ::waitpid(process, &status, 0);
        is_all_good = is_all_good && status == 0;
    }
    return is_all_good ? 0 : 1;
}

std::size_t number_of(std::string_view word)
{
    std::size_t number = 0;
    const auto [end, error] = std::from_chars(word.data(), word.data() + word.size(), number);
    if (error != std::errc{} || end != word.data() + word.size() || number == 0)
        throw std::runtime_error{"expected a number from 1 on, not " + std::string{word}};
    return number;
}

choice_t parse(const std::vector<std::string>& words)
{
    choice_t choice;
    for (std::size_t i = 0; i < words.size(); ++i) {
        const auto value = [&] {
            if (++i == words.size())
                throw std::runtime_error{"expected a value after " + words[i - 1]};
            return words[i];
        };
        if (words[i] == "--all")
            choice.count = 0;
        else if (words[i] == "--seed")
            choice.seed = number_of(value());
        else if (words[i] == "--count")
            choice.count = number_of(value());
        else if (words[i] == "--jobs")
            choice.jobs = number_of(value());
        else if (words[i] == "--run")
            choice.line = value();
        else
            throw std::runtime_error{"unknown word: " + words[i]};
    }
    return choice;
}

} // namespace
} // namespace ivra::tests

int main(int argc, char** argv)
{
    using namespace ivra::tests;
    if (argc == 2 && std::strcmp(argv[1], "--worker") == 0) // of readings, which starts its own program once more
        return readings_main(argc, argv);
    try {
        ::unsetenv("IVRA_VIRTUAL_CLOCK"); // it is the boards' alone
        const choice_t choice = parse({argv + 1, argv + argc});
        enter_host({.serial = "SSJ17200123\n", .address = "00:1c:73:aa:bb:cc\n"});
        return choice.line.empty() ? sweep(choice) : show_one(choice.line);
    } catch (const std::exception& error) {
        std::cerr << "sweep: " << error.what() << '\n';
        return 2;
    }
}
