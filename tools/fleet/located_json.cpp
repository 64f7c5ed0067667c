#include "tools/fleet/located_json.h"

#include <algorithm>
#include <iterator>

namespace fleet {
namespace {

/** Deepest nesting that is read: what walks through a document calls itself. */
constexpr int deepest = 64;

/** Walks over a text that is JSON and notes where each value begins; a member begins with
 *  its name. The parser itself tells no positions. */
class Surveyor {
  public:
    struct Problem {
        size_t at;
        std::string sentence;
    };

    Surveyor(const std::string &text, std::map<std::string, size_t> &offsets)
        : text_(text), offsets_(offsets) {}

    void value(const std::string &pointer, int depth = 0) {
        skip_blanks();
        offsets_.emplace(pointer, at_);
        const char first = text_[at_];
        if (depth > deepest) {
            throw Problem{at_, "nested too deep"};
        }
        if (first == '"') {
            string();
        } else if (first == '{' || first == '[') {
            list(pointer, first == '{', depth);
        } else {
            at_ = text_.find_first_of(",]} \t\r\n/", at_);
            at_ = std::min(at_, text_.size());
        }
    }

  private:
    void list(const std::string &pointer, bool named, int depth) {
        ++at_;
        for (size_t index = 0; skip_blanks(), text_[at_] != '}' && text_[at_] != ']'; ++index) {
            at_ += text_[at_] == ',' ? 1 : 0;
            skip_blanks();
            std::string inner = below(pointer, index);
            if (named) {
                const size_t name = at_;
                inner = below(pointer, Json::parse(string()).get<std::string>());
                if (!offsets_.emplace(inner, name).second) {
                    throw Problem{name, inner + " stands there twice"};
                }
                skip_blanks();
                ++at_;  // the colon
            }
            value(inner, depth + 1);
        }
        ++at_;
    }

    std::string string() {
        const size_t begin = at_;
        while (text_[++at_] != '"') {
            at_ += text_[at_] == '\\' ? 1 : 0;
        }
        return text_.substr(begin, ++at_ - begin);
    }

    void skip_blanks() {
        while ((at_ = text_.find_first_not_of(" \t\r\n", at_)) != text_.npos && text_[at_] == '/') {
            at_ = text_[at_ + 1] == '/' ? text_.find('\n', at_) : text_.find("*/", at_) + 2;
        }
        at_ = std::min(at_, text_.size());
    }

    const std::string &text_;
    std::map<std::string, size_t> &offsets_;
    size_t at_ = 0;
};

/** What the parser says behind its own way of telling the place. */
std::string sentence_of(const Json::parse_error &error) {
    const std::string what = error.what();  // "[...] parse error at ...: what is wrong"
    const size_t colon = what.find(": ");
    return "no JSON" + (colon == what.npos ? "" : what.substr(colon));
}

}  // namespace

std::string below(const std::string &pointer, const std::string &key) {
    return pointer + "/" + key;
}
std::string below(const std::string &pointer, size_t index) {
    return pointer + "/" + std::to_string(index);
}

LocatedJson::LocatedJson(std::string name, const std::string &text)
    : name_(std::move(name)), text_(text) {
    try {
        value_ = Json::parse(text_, nullptr, true, true);
        Surveyor(text_, offsets_).value("");
    } catch (const Json::parse_error &error) {
        const size_t at = std::min(error.byte, text_.size());
        throw tools::Failure(at_place(at == 0 ? 0 : at - 1) + sentence_of(error));
    } catch (const Surveyor::Problem &problem) {
        throw tools::Failure(at_place(problem.at) + problem.sentence);
    }
}

std::string LocatedJson::at_place(size_t offset) const {
    const auto at = text_.begin() + static_cast<std::ptrdiff_t>(offset);
    const auto line = std::find(std::make_reverse_iterator(at), text_.rend(), '\n').base();
    return name_ + ":" + std::to_string(1 + std::count(text_.begin(), at, '\n')) + ":" +
           std::to_string(1 + (at - line)) + ": ";
}

std::string LocatedJson::fault(const std::string &pointer, const std::string &sentence) const {
    const auto known = offsets_.find(pointer);
    return at_place(known == offsets_.end() ? 0 : known->second) +
           (pointer.empty() ? "the scenario" : pointer) + " " + sentence;
}

}  // namespace fleet
