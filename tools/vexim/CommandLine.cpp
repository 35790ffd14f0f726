#include "CommandLine.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <numeric>
#include <stdexcept>
#include <utility>

namespace {

using Strings = std::vector<std::string>;

constexpr int kUnlimited = CLI::detail::expected_max_vector_size;

Strings split(const std::string& name) {
    const auto blank = name.find(' ');
    if (blank == std::string::npos) return {name};
    return {name.substr(0, blank), name.substr(blank + 1)};
}

std::string joined(const Strings& words, const std::string& between) {
    std::string text;
    for (const auto& word : words) text += (text.empty() ? "" : between) + word;
    return text;
}

/// How many letters differ (Levenshtein distance).
std::size_t distance(const std::string& one, const std::string& other) {
    std::vector<std::size_t> row(other.size() + 1);
    std::iota(row.begin(), row.end(), 0);
    for (std::size_t i = 0; i < one.size(); ++i) {
        std::size_t diagonal = std::exchange(row[0], i + 1);
        for (std::size_t j = 0; j < other.size(); ++j) {
            const std::size_t change = diagonal + (one[i] == other[j] ? 0 : 1);
            diagonal = row[j + 1];
            row[j + 1] = std::min({change, row[j] + 1, row[j + 1] + 1});
        }
    }
    return row.back();
}

/// " (did you mean send?)" if a known word is similar, otherwise nothing.
std::string guess(const std::string& word, const Strings& known) {
    const auto nearest = std::ranges::min_element(
        known, {}, [&](const std::string& one) { return distance(word, one); });
    if (nearest == known.end() ||
        distance(word, *nearest) > std::max<std::size_t>(1, word.size() / 3))
        return "";
    return " (did you mean " + *nearest + "?)";
}

CLI::Option* add(CLI::App& app, const OptionSpec& spec) {
    if (spec.value.empty()) return app.add_flag(spec.name, spec.help);
    auto* option = app.add_option(spec.name, spec.help)->type_name(spec.value);
    // Each use of a repeatable option takes one value; otherwise it would take the command's words,
    // too.
    if (!spec.isRepeatable) return option->expected(1);
    return option->expected(1, kUnlimited)->delimiter(',')->allow_extra_args(false);
}

void add(CLI::App& app, const WordSpec& spec) {
    auto* option = app.add_option(spec.name, spec.help)->type_name("");
    if (!spec.choices.empty()) option->check(CLI::IsMember(spec.choices))->type_name("");
    switch (spec.count) {
        case Count::One: option->required(); break;
        case Count::Optional: break;
        case Count::Any: option->expected(1, kUnlimited)->allow_extra_args(); break;
        case Count::Some: option->required()->expected(1, kUnlimited)->allow_extra_args(); break;
    }
}

/// The help text, without the library's notes about options that exclude each other.
class Formatter : public CLI::Formatter {
public:
    Formatter() {
        label("Positionals", "Words");
        label("Subcommands", "Commands");
        label("SUBCOMMAND", "COMMAND");
        column_width(24);
    }
    std::string make_option_opts(const CLI::Option* option) const override {
        if (option->get_positional()) return "";
        const auto value = option->get_type_name();
        return value.empty() ? "" : " " + value;
    }
};

/// The parser, made from the table.
class Parser {
public:
    explicit Parser(const CommandTable& table)
        : table_(table),
          app_("Instant messaging in a terminal", "vexim") {
        app_.formatter(std::make_shared<Formatter>());  // the commands inherit it
        app_.set_help_flag("--help,-h", "Print this");
        app_.set_version_flag("--version", "vexim " VEXIM_VERSION, "Print the version");
        app_.require_subcommand(1)->fallthrough();
        for (const auto& option : commonOptions()) {
            auto described = option;
            if (option.isSetting) described.help += " [" + environmentName(option.name) + "]";
            ::add(app_, described);
        }
        std::string footer = "Exit status:";
        for (const auto& [status, meaning] : exitStatuses())
            footer += "\n  " + std::to_string(status) + "  " + meaning;
        app_.footer(
            footer +
            "\n\nvexim COMMAND --help shows what a command takes. The options above can go anywhere. Those\n"
            "with a name in brackets can also be environment variables, or lines like \"server = URL\"\n"
            "in the configuration file (" +
            usualConfigurationFile() + ").");
        for (const auto& command : table.commands) add(command);
    }

    Parsed parse(Strings arguments) {
        if (!arguments.empty() && arguments.front() == "help") {  // "help send" is "send --help"
            arguments.erase(arguments.begin());
            arguments.emplace_back("--help");
        }
        std::ranges::reverse(arguments);  // the library reads them from the back
        try {
            app_.parse(arguments);
            return found();
        } catch (const CLI::CallForHelp&) {
            return unknownWord().value_or(Parsed{.text = help()});
        } catch (const CLI::CallForVersion& version) {
            return {.text = version.what() + std::string("\n")};
        } catch (const CLI::ParseError& error) {
            // An unknown word matters more than a missing one, so it is reported first.
            if (auto unknown = unknownWord()) return *unknown;
            if (chosen() == &app_)
                return refused("say what to do: " + names(app_) + "; see --help");
            if (isTopic(*chosen()))
                return refused(pathOf(*chosen()) + " takes one of: " + names(*chosen()));
            return refused(error.what() + hint());
        } catch (const std::invalid_argument& error) {
            return refused(error.what());
        }
    }

private:
    void add(const CommandSpec& command) {
        const auto path = split(command.name);
        CLI::App* parent = &app_;
        if (path.size() == 2) {
            parent = topics_[path[0]];
            const auto topic = std::ranges::find(table_.topics, path[0],
                                                 &std::pair<std::string, std::string>::first);
            if (parent == nullptr)
                parent = app_.add_subcommand(path[0], topic->second)->require_subcommand(1);
            topics_[path[0]] = parent;
        }
        auto& app = *parent->add_subcommand(path.back(), command.help);
        for (const auto& word : command.words) ::add(app, word);
        for (const auto& option : command.options) {
            auto described = option;
            if (option.isSetting) described.help += " [" + environmentName(option.name) + "]";
            ::add(app, described);
        }
        for (const char* one : {"--friend", "--group", "--room", "--passenger"}) {
            for (const char* other : {"--friend", "--group", "--room", "--passenger"}) {
                auto* option = app.get_option_no_throw(one);
                auto* excluded = app.get_option_no_throw(other);
                if (option != excluded && option != nullptr && excluded != nullptr)
                    option->excludes(excluded);
            }
        }
        app.footer(command.notes);
    }

    static bool isTopic(const CLI::App& app) {
        return !app.get_subcommands([](const CLI::App*) { return true; }).empty();
    }
    static std::string pathOf(const CLI::App& app) {
        const auto* parent = app.get_parent();
        if (parent == nullptr) return "";
        return (parent->get_parent() != nullptr ? parent->get_name() + " " : "") + app.get_name();
    }
    static std::string names(const CLI::App& app) {
        Strings all;
        for (const auto* one : app.get_subcommands([](const CLI::App*) { return true; }))
            all.push_back(one->get_name());
        return joined(all, ", ");
    }

    /// The innermost command that the parser has recognised.
    const CLI::App* chosen() const {
        const CLI::App* app = &app_;
        while (!app->get_subcommands().empty()) app = app->get_subcommands().front();
        return app;
    }
    std::string hint() const { return "; vexim " + pathOf(*chosen()) + " --help says more"; }

    std::string help() const {
        std::string text = app_.help();
        if (chosen() == &app_) return text;
        Strings common;
        for (const auto& option : commonOptions()) common.push_back(option.name);
        return text +
               "\nEvery command also takes what vexim --help shows: " + joined(common, ", ") + "\n";
    }

    static Parsed refused(const std::string& why) { return {.text = why, .status = 2}; }

    /// Reports the first unknown word, with a guess at what was meant.
    std::optional<Parsed> unknownWord() const {
        auto left = app_.remaining(true);
        std::erase(left, "--");
        if (left.empty()) return std::nullopt;
        const auto& app = *chosen();
        const std::string word = left.front();
        Strings known;
        if (word.starts_with('-') && word != "-") {
            for (const auto* one : {&app, static_cast<const CLI::App*>(&app_)}) {
                for (const auto* option : one->get_options()) {
                    for (const auto& name : option->get_lnames()) known.push_back("--" + name);
                }
            }
            const auto name = word.substr(0, word.find('='));
            return refused("no such option: " + name + guess(name, known) +
                           (isTopic(app) ? "" : hint()));
        }
        if (!isTopic(app)) {
            std::string why = "not understood: " + word;
            for (const auto* option : app.get_options()) {
                if (option->get_positional() && option->get_items_expected_max() > 1)
                    why += " (a text that begins with a dash comes after --)";
            }
            return refused(why + hint());
        }
        for (const auto* one : app.get_subcommands([](const CLI::App*) { return true; }))
            known.push_back(one->get_name());
        const auto path = pathOf(app);
        return refused("no such command: " + (path.empty() ? "" : path + " ") + word +
                       guess(word, known) +
                       (path.empty() ? "; --help lists them" : "; there are " + names(app)));
    }

    void take(Given& given, const CLI::App& app) const {
        for (const auto* option : app.get_options()) {
            if (option->count() == 0) continue;
            const auto name =
                option->get_positional() ? option->get_name() : "--" + option->get_lnames().front();
            given.values[name] = option->results();
        }
    }

    Parsed found() const {
        Parsed parsed;
        const CLI::App& app = *chosen();
        parsed.command = table_.find(pathOf(app));
        auto& given = parsed.given;
        take(given, app_);
        take(given, app);
        addSettings(given, *parsed.command);
        given.isJSON = given.has("--json");
        auto& account = given.account;
        account.server = given.one("--server");
        account.appId = given.find("--app").value_or(account.appId);
        account.clientKey = given.find("--key").value_or(account.clientKey);
        account.installation = given.find("--install").value_or(account.installation);
        account.authorityFile = given.find("--ca");
        account.pins = given.all("--pin");
        std::error_code ignored;
        if (account.authorityFile && !std::filesystem::exists(*account.authorityFile, ignored))
            throw std::invalid_argument("--ca: no such file: " + *account.authorityFile);
        given.credentials = {given.find("--user"), given.find("--username"),
                             given.find("--password")};
        given.peer = {given.find("--friend"), given.find("--group"), given.find("--room")};
        return parsed;
    }

    /// Fills in what the command line does not say, from the environment and then from the
    /// configuration file.
    void addSettings(Given& given, const CommandSpec& command) const {
        const auto file =
            given.find("--config")
                .value_or(std::getenv("VEXIM_CONFIG") != nullptr ? std::getenv("VEXIM_CONFIG")
                                                                 : "");
        const auto configured = readConfiguration(file);
        // A user who is named on the command line must not be mixed with one from the environment
        // or from the file.
        const bool isNamed = given.has("--user") || given.has("--username");
        if (given.has("--user") && given.has("--username"))
            throw std::invalid_argument("--user and --username exclude each other");
        std::map<std::string, Strings> environment;
        const auto fill = [&](const OptionSpec& option) {
            const bool isName = option.name == "--user" || option.name == "--username";
            if (!option.isSetting || given.has(option.name) || (isName && isNamed)) return;
            const char* value = std::getenv(environmentName(option.name).c_str());
            if (value != nullptr && *value != '\0') environment[option.name] = {value};
        };
        for (const auto& option : commonOptions()) fill(option);
        for (const auto& option : command.options) fill(option);
        given.values.insert(environment.begin(), environment.end());
        const bool isNamedNow = given.has("--user") || given.has("--username");
        for (const auto& [name, values] : configured) {
            const bool isName = name == "--user" || name == "--username";
            if (!given.has(name) && !(isName && isNamedNow)) given.values[name] = values;
        }
    }

    std::map<std::string, Strings> readConfiguration(const std::string& named) const {
        const std::string path = named.empty() ? usualConfigurationFile() : named;
        std::error_code ignored;
        if (!std::filesystem::is_regular_file(path, ignored)) {
            if (named.empty()) return {};
            throw std::invalid_argument("no such configuration file: " + path);
        }
        Strings known;
        for (const auto& option : commonOptions()) {
            if (option.isSetting) known.push_back(option.name);
        }
        for (const auto& command : table_.commands) {
            for (const auto& option : command.options) {
                if (option.isSetting) known.push_back(option.name);
            }
        }
        std::map<std::string, Strings> values;
        for (const auto& item : CLI::ConfigINI().from_file(path)) {
            // the library's marks for a section's beginning and end
            if (item.name == "++" || item.name == "--") continue;
            const std::string name = "--" + item.name;
            if (!item.parents.empty() || std::ranges::find(known, name) == known.end()) {
                throw std::invalid_argument(path + ": no such setting: " + item.fullname() +
                                            guess(name, known));
            }
            values[name] = item.inputs;
        }
        return values;
    }

    const CommandTable& table_;
    CLI::App app_;
    std::map<std::string, CLI::App*> topics_;
};

}  // namespace

Parsed parse(const CommandTable& table, const std::vector<std::string>& arguments) {
    return Parser(table).parse(arguments);
}
