#include <wordexp.h>

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <map>

#include "tools/cli.h"
#include "tools/cli_tables.h"

namespace tools {
namespace {

std::map<const CLI::Option *, Words> &offers() {
    static std::map<const CLI::Option *, Words> table;
    return table;
}

/** The words of a line as a shell expands them, the last is the one under way; none
 *  when the line does not end outside quotes, or runs commands. */
std::vector<std::string> split(const std::string &line) {
    wordexp_t found{};
    if (wordexp(line.c_str(), &found, WRDE_NOCMD) != 0) {
        return {};
    }
    std::vector<std::string> words(found.we_wordv, found.we_wordv + found.we_wordc);
    wordfree(&found);
    if (line.ends_with(' ')) {
        words.emplace_back();
    }
    return words;
}

/** Puts a value where parsing would; a wrong one is left to the parser. */
void take(CLI::Option *option, const std::string &value) {
    try {
        option->add_result(value);
        option->run_callback();
    } catch (const CLI::Error &) {
    }
}

void take_environment(CLI::App &app) {
    for (CLI::Option *option : app.get_options([](CLI::Option *) { return true; })) {
        const char *value = getenv(option->get_envname().c_str());
        if (!option->get_envname().empty() && value != nullptr) {
            option->clear();
            take(option, value);
        }
    }
}

/** The app whose options a subcommand takes besides its own. */
CLI::App *above(CLI::App *app) {
    return app->get_fallthrough() ? app->get_parent() : nullptr;
}

CLI::Option *option_of(CLI::App *app, const std::string &name) {
    for (; app != nullptr; app = above(app)) {
        if (CLI::Option *option = app->get_option_no_throw(name)) {
            return option;
        }
    }
    return nullptr;
}

/** The place on a command line that its words lead to. */
struct Place {
    CLI::App *app;
    size_t arguments = 0;            /**< that stand there already */
    CLI::Option *awaiting = nullptr; /**< the option whose value is next */
    bool options = true;             /**< no "--" yet */

    CLI::App *command(const std::string &name) const {
        const std::vector<CLI::App *> all = visible_commands(*app);
        const auto found =
            std::ranges::find(all, name, [](CLI::App *one) { return one->get_name(); });
        return found == all.end() ? nullptr : *found;
    }

    CLI::Option *argument() const {
        const std::vector<CLI::Option *> all = visible_options(*app, true);
        if (all.empty()) {
            return nullptr;
        }
        const bool ends_in_list = all.back()->get_items_expected_max() > 1;
        return arguments < all.size() ? all[arguments] : ends_in_list ? all.back() : nullptr;
    }

    void pass(const std::string &word) {
        if (awaiting != nullptr) {
            take(awaiting, word);
            awaiting = nullptr;
        } else if (const size_t equals = word.find('='); is_option(word) && equals != word.npos) {
            pass(word.substr(0, equals));
            pass(word.substr(equals + 1));
        } else if (is_option(word)) {
            options = word != "--";
            CLI::Option *option = option_of(app, word);
            if (option != nullptr && option->get_items_expected_max() == 0) {
                take(option, "true");
            } else if (option != nullptr) {
                option->clear();  // what the environment or an earlier word said
                awaiting = option;
            }
        } else if (CLI::App *named = command(word)) {
            *this = {named};
        } else {
            if (CLI::Option *option = argument()) {
                take(option, word);
            }
            arguments++;
        }
    }

    bool is_option(const std::string &word) const {
        return options && awaiting == nullptr && word.starts_with('-') && word != "-";
    }
};

/** What the scripts below take for every file and folder. */
constexpr const char *any_file = ":file";
constexpr const char *any_folder = ":dir";

using Described = std::vector<std::pair<std::string, std::string>>;

void add_values(Described &words, CLI::Option *option) {
    const std::string type = option->get_type_name();
    const std::string kind = option->nonpositional() ? type : option->get_name(true);
    if (const auto found = offers().find(option); found != offers().end()) {
        for (const std::string &word : found->second()) {
            words.emplace_back(word, "");
        }
    } else if (kind == "FILE" || kind == "DIR") {
        words.emplace_back(kind == "DIR" ? any_folder : any_file, "");
    } else if (const size_t set = type.find('{'); set != type.npos) {
        const std::string members = type.substr(set + 1, type.find('}') - set - 1);
        for (const std::string &word : CLI::detail::split(members, ',')) {
            words.emplace_back(word, "");
        }
    }
}

void add_options(Described &words, CLI::App *app) {
    for (; app != nullptr; app = above(app)) {
        for (const CLI::Option *option : visible_options(*app, false)) {
            words.emplace_back(option->get_name(), option->get_description());
        }
    }
}

/** What may stand at a place, whatever was typed of it, but for a dash. */
Described possible(const Place &place, const std::string &typed) {
    Described words;
    if (place.awaiting != nullptr) {
        add_values(words, place.awaiting);
        return words;
    }
    if (!place.options || !typed.starts_with('-')) {
        for (const CLI::App *command : visible_commands(*place.app)) {
            words.emplace_back(command->get_name(), command->get_description());
        }
        if (CLI::Option *argument = place.argument()) {
            add_values(words, argument);
        }
        if (!words.empty()) {
            return words;
        }
    }
    add_options(words, place.app);
    return words;
}

constexpr const char *bash_script = R"sh(# Completion of TOOL for bash: source it, or put it into
# ~/.local/share/bash-completion/completions/TOOL
_TOOL() {
    local typed=${COMP_LINE:0:COMP_POINT} word=${COMP_WORDS[COMP_CWORD]} lines line cut
    mapfile -t lines < <("$1" completion --line "$typed" 2>/dev/null)
    COMPREPLY=()
    [[ $word == [:=] ]] && word=
    case ${lines[0]-} in
    :file | :dir)
        compopt -o filenames 2>/dev/null
        [ "${lines[0]}" = :dir ] && line=-d || line=-f
        mapfile -t COMPREPLY < <(compgen "$line" -- "$word")
        ;;
    *)
        # bash ends words at ":" and "=" too, and replaces what is behind the last.
        typed=${typed##* }
        cut=$((${#typed} > ${#word} ? ${#typed} - ${#word} : 0))
        for line in "${lines[@]%%$'\t'*}"; do
            COMPREPLY+=("$(printf %q "${line:cut}")")
        done
        ;;
    esac
}
complete -F _TOOL TOOL
)sh";

constexpr const char *zsh_script = R"sh(# Completion of TOOL for zsh: source it behind compinit.
_TOOL() {
    local -a lines
    lines=("${(@f)$("${words[1]}" completion --line "${(j: :)words[1,CURRENT]}" 2>/dev/null)}")
    case ${lines[1]} in
    :file) _files ;;
    :dir) _files -/ ;;
    '') return 1 ;;
    *)
        lines=("${(@)lines//:/\\:}")
        lines=("${(@)lines/$'\t'/:}")
        _describe -t values TOOL lines
        ;;
    esac
}
compdef _TOOL TOOL
)sh";

}  // namespace

CLI::Option *offer(CLI::Option *option, Words words) {
    offers()[option] = std::move(words);
    return option;
}

std::vector<CLI::Option *> visible_options(CLI::App &app, bool arguments) {
    return app.get_options([=](CLI::Option *option) {
        return !option->get_group().empty() && option->nonpositional() != arguments;
    });
}

std::vector<CLI::App *> visible_commands(CLI::App &app) {
    return app.get_subcommands([](CLI::App *command) { return !command->get_group().empty(); });
}

std::string completion_script(const std::string &tool, const std::string &shell) {
    return CLI::detail::find_and_replace(shell == "zsh" ? zsh_script : bash_script, "TOOL", tool);
}

std::string completions(CLI::App &app, const std::string &line) {
    const std::vector<std::string> words = split(line);
    if (words.empty()) {
        return "";
    }
    take_environment(app);
    Place place{&app};
    for (size_t i = 1; i + 1 < words.size(); ++i) {
        place.pass(words[i]);
    }
    std::string typed = words.back();
    std::string front;
    if (const size_t equals = typed.find('='); place.is_option(typed) && equals != typed.npos) {
        place.pass(typed.substr(0, equals));
        front = typed.substr(0, equals + 1);
        typed.erase(0, equals + 1);
    }
    std::string text;
    for (const auto &[word, description] : possible(place, typed)) {
        if (word == any_file || word == any_folder) {
            return word + "\n";
        }
        const bool plain = std::ranges::none_of(word, [](unsigned char c) { return iscntrl(c); });
        if (plain && word.starts_with(typed)) {
            text += front + word + (description.empty() ? "" : "\t" + description) + "\n";
        }
    }
    return text;
}

}  // namespace tools
