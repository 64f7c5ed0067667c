/**
 * Shell commands of the agent. A command runs for real when each of its parts is
 * a harmless tool on files of the device; everything else is only journalled.
 */
#include <arpa/inet.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

#include "virtual/device/device.h"

namespace vap {
namespace {

/** A word or an operator of a command line. */
struct Token {
    std::string text; /**< without its quotes */
    bool is_operator = false;
    bool quoted = false;
};

using Tokens = std::vector<Token>;

/** Characters whose meaning to a shell is more than this file understands. */
constexpr std::string_view beyond = "`$\\(){}*?[]~#!\n";
constexpr std::string_view operators = ";|&<>";

/** One word from `at` on; false for a construct that is not understood. */
bool read_word(std::string_view line, size_t &at, Token &word) {
    while (at < line.size() && line[at] != ' ' && line[at] != '\t' &&
           operators.find(line[at]) == std::string_view::npos) {
        const char c = line[at];
        if (c != '\'' && c != '"') {
            if (beyond.find(c) != std::string_view::npos) {
                return false;
            }
            word.text += c;
            ++at;
            continue;
        }
        const size_t end = line.find(c, at + 1);
        if (end == std::string_view::npos) {
            return false;
        }
        const std::string_view inner = line.substr(at + 1, end - at - 1);
        if (c == '"' && inner.find_first_of("`$\\") != std::string_view::npos) {
            return false;
        }
        word.text += inner;
        word.quoted = true;
        at = end + 1;
    }
    return true;
}

/** The words and operators of a command line; false for a construct that is not
 *  understood. */
bool tokenize(std::string_view line, Tokens &tokens) {
    size_t at = 0;
    while (at < line.size()) {
        if (line[at] == ' ' || line[at] == '\t') {
            ++at;
            continue;
        }
        Token token;
        if (line.substr(at).starts_with("2>&1")) {
            token = {"2>&1", true};
            at += 4;
        } else if (operators.find(line[at]) != std::string_view::npos) {
            token = {std::string(1, line[at]), true};
            for (++at; at < line.size() && line[at] == token.text[0]; ++at) {
                token.text += line[at];
            }
        } else if (!read_word(line, at, token)) {
            return false;
        }
        tokens.push_back(std::move(token));
    }
    return true;
}

/** A word in single quotes for the real shell. */
std::string quote(const std::string &word) {
    std::string text = "'";
    for (const char c : word) {
        text += c == '\'' ? std::string("'\\''") : std::string(1, c);
    }
    return text + "'";
}

/** A word that names a file: device paths become files of the folder; false for
 *  any other file of the machine. */
bool place_path(std::string &word) {
    if (is_device_path(word)) {
        word = host_path(word).string();
        return true;
    }
    return word == "/dev/null" || (!word.starts_with('/') && word.find("..") == std::string::npos);
}

/** Does an address lead to this machine only? */
bool is_loopback_url(std::string_view url) {
    const size_t scheme = url.find("://");
    url.remove_prefix(scheme == std::string_view::npos ? 0 : scheme + 3);
    const std::string_view authority = url.substr(0, url.find_first_of("/?#"));
    if (authority.find('@') != std::string_view::npos) {
        return false;
    }
    const std::string host(authority.substr(0, authority.find(':')));
    in_addr address{};
    return host == "localhost" ||
           (inet_pton(AF_INET, host.c_str(), &address) == 1 && ntohl(address.s_addr) >> 24 == 127);
}

/** What a tool's words are, after its name. */
using Check = bool (*)(size_t position, std::string &word);

bool any_path(size_t, std::string &word) {
    return place_path(word);
}

/** The first word that is no option is the tool's own text, the others are files. */
bool text_then_paths(size_t position, std::string &word) {
    return position == 0 || place_path(word);
}

/** What is no whole path is an address: wget takes one without a scheme, too. */
bool wget_word(size_t, std::string &word) {
    return word.starts_with('/') ? place_path(word) : is_loopback_url(word);
}

/** A program that prints fields: nothing that runs, reads or writes files. */
bool prints_fields(std::string_view program) {
    return std::ranges::all_of(program, [](char c) {
        return strchr("{}$, ", c) != nullptr || (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z');
    });
}

bool awk_word(size_t position, std::string &word) {
    return position == 0 ? prints_fields(word) : place_path(word);
}

struct Tool {
    const char *name;
    const char *added; /**< options that keep it harmless */
    Check check;
};

constexpr Tool tools[] = {
    {"cat", "", any_path},
    {"rm", "", any_path},
    {"sed", " --sandbox", text_then_paths},  // neither runs nor writes by its script
    {"grep", "", text_then_paths},
    {"awk", "", awk_word},
    {"wget", " --no-proxy --max-redirect=0", wget_word},
    {"ping", "", any_path},      // the folder's own
    {"iwconfig", "", any_path},  // the folder's own
};

/** Options with a value behind them, which is not one of the tool's words. */
bool takes_value(const std::string &tool, const std::string &option) {
    return (tool == "wget" && option == "-T") || (tool == "awk" && option == "-F");
}

/** One command of a pipeline, from `at` to the next separator, as shell text. */
bool rewrite_command(const Tokens &tokens, size_t &at, std::string &text) {
    const std::string name = tokens[at].text;
    const auto *tool = std::ranges::find_if(
        tools, [&](const Tool &row) { return !tokens[at].is_operator && name == row.name; });
    if (tool == std::end(tools)) {
        return false;
    }
    text += name + tool->added;
    size_t position = 0;
    for (++at; at < tokens.size(); ++at) {
        const Token &token = tokens[at];
        if (token.is_operator && token.text == "2>&1") {
            text += " 2>&1";
            continue;
        }
        if (token.is_operator) {
            return token.text.find_first_of("<>") == std::string::npos;
        }
        std::string word = token.text;
        const bool option = word.starts_with('-');
        if (option ? word.find('/') != std::string::npos : !tool->check(position, word)) {
            return false;
        }
        text += " " + quote(word);
        if (option && takes_value(name, word) && at + 1 < tokens.size() &&
            !tokens[at + 1].is_operator) {
            text += " " + quote(tokens[++at].text);
        }
        position += option ? 0 : 1;
    }
    return true;
}

/** The whole command line as shell text; nothing when a part of it is not to
 *  run. */
std::optional<std::string> rewrite(const Tokens &tokens) {
    std::string text;
    for (size_t at = 0; at < tokens.size();) {
        if (!rewrite_command(tokens, at, text)) {
            return std::nullopt;
        }
        if (at < tokens.size()) {
            text += " " + tokens[at].text + " ";
            ++at;
        }
    }
    return text;
}

bool fetches(const Tokens &tokens) {
    return !tokens.empty() && tokens.front().text == "wget";
}

}  // namespace

std::optional<std::string> shell_command(const std::string &command) {
    const Inside inside;
    Tokens tokens;
    if (!tokenize(command, tokens) || tokens.empty()) {
        return std::nullopt;
    }
    if (const int status = wget_status(); fetches(tokens) && status != 0) {
        return "exit " + std::to_string(status);
    }
    const std::optional<std::string> text = rewrite(tokens);
    if (!text) {
        // An address outside the machine looks like a network that is down.
        return fetches(tokens) ? std::optional<std::string>("exit 4") : std::nullopt;
    }
    const std::string where = folder().string();
    return "cd " + quote(where + "/root") + " && export VAP_DEVICE=" + quote(where) +
           " PATH=" + quote(where + "/bin") + ":\"$PATH\" && { " + *text + "\n}";
}

}  // namespace vap
