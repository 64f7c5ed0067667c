#include "tools/fleet/located_json.h"

#include <algorithm>
#include <cctype>
#include <iterator>

namespace fleet {
namespace {

/** Deepest nesting that is read: what walks through a document calls itself. */
constexpr size_t deepest = 64;

/** Reads the text and counts: the parser itself tells no positions. */
class CountingIterator {
  public:
    using iterator_category = std::input_iterator_tag;
    using value_type = char;
    using difference_type = std::ptrdiff_t;
    using pointer = const char *;
    using reference = const char &;

    CountingIterator(const char *at, const char **furthest) : at_(at), furthest_(furthest) {}
    reference operator*() const { return *at_; }
    CountingIterator &operator++() {
        *furthest_ = ++at_;
        return *this;
    }
    bool operator==(const CountingIterator &other) const { return at_ == other.at_; }

  private:
    const char *at_;
    const char **furthest_;
};

/** Hears of each value when the parser has just read it, and notes where it begins. */
class Surveyor : public nlohmann::json_sax<Json> {
  public:
    Surveyor(const std::string &text, const char **furthest, std::map<std::string, size_t> &offsets)
        : text_(text), furthest_(furthest), offsets_(offsets) {}

    bool null() override { return note(begin_of_word()); }
    bool boolean(bool) override { return note(begin_of_word()); }
    bool number_integer(number_integer_t) override { return note(begin_of_word()); }
    bool number_unsigned(number_unsigned_t) override { return note(begin_of_word()); }
    bool number_float(number_float_t, const string_t &) override { return note(begin_of_word()); }
    bool string(string_t &) override { return note(begin_of_string()); }
    bool binary(binary_t &) override { return true; }
    bool start_object(std::size_t) override { return open(false); }
    bool start_array(std::size_t) override { return open(true); }
    bool end_object() override { return close(); }
    bool end_array() override { return close(); }
    bool key(string_t &name) override {
        const std::string here = below(levels_.back().pointer, name);
        if (!offsets_.emplace(here, begin_of_string()).second) {
            problem = here + " stands there twice";
            problem_at = begin_of_string();
            return false;
        }
        levels_.back().next = here;
        return true;
    }
    bool parse_error(std::size_t position, const std::string &,
                     const nlohmann::detail::exception &error) override {
        const std::string what = error.what();  // "[...] parse error at ...: what is wrong"
        const size_t colon = what.find(": ");
        problem = "no JSON" + (colon == what.npos ? "" : what.substr(colon));
        problem_at = position == 0 ? 0 : position - 1;
        return false;
    }

    std::string problem;
    size_t problem_at = 0;

  private:
    struct Level {
        std::string pointer;
        std::string next; /**< pointer of an object's value to come */
        bool array;
        size_t index = 0;
    };

    size_t last() const { return static_cast<size_t>(*furthest_ - text_.data()) - 1; }

    /** Begin of the word that has just been read: the parser may stand one behind it. */
    size_t begin_of_word() const {
        const auto is_part = [&](size_t i) {
            const char c = text_[i];
            return isalnum(static_cast<unsigned char>(c)) || c == '+' || c == '-' || c == '.';
        };
        size_t at = std::min(last(), text_.size() - 1);
        while (at > 0 && !is_part(at)) {
            --at;
        }
        while (at > 0 && is_part(at - 1)) {
            --at;
        }
        return at;
    }

    size_t begin_of_string() const {
        size_t at = last();
        while (at > 0) {
            size_t slashes = 0;
            --at;
            while (slashes < at && text_[at - 1 - slashes] == '\\') {
                ++slashes;
            }
            if (text_[at] == '"' && slashes % 2 == 0) {
                break;
            }
        }
        return at;
    }

    /** Pointer of the value that comes next. */
    std::string next() {
        if (levels_.empty()) {
            return "";
        }
        Level &level = levels_.back();
        return level.array ? below(level.pointer, level.index++) : level.next;
    }

    bool note(size_t offset) {
        offsets_.emplace(next(), offset);  // a member's name stands there already
        return true;
    }

    bool open(bool array) {
        const std::string pointer = next();
        offsets_.emplace(pointer, last());
        levels_.push_back({pointer, "", array});
        if (levels_.size() > deepest) {
            problem = "nested too deep";
            problem_at = last();
        }
        return levels_.size() <= deepest;
    }

    bool close() {
        levels_.pop_back();
        return true;
    }

    const std::string &text_;
    const char **furthest_;
    std::map<std::string, size_t> &offsets_;
    std::vector<Level> levels_;
};

}  // namespace

std::string below(const std::string &pointer, const std::string &key) {
    return pointer + "/" + key;
}
std::string below(const std::string &pointer, size_t index) {
    return pointer + "/" + std::to_string(index);
}

LocatedJson::LocatedJson(std::string name, const std::string &text)
    : name_(std::move(name)), text_(text) {
    const char *furthest = text_.data();
    Surveyor surveyor(text_, &furthest, offsets_);
    const char *const end = text_.data() + text_.size();
    if (!Json::sax_parse(CountingIterator(text_.data(), &furthest),
                         CountingIterator(end, &furthest), &surveyor,
                         nlohmann::detail::input_format_t::json, true, true)) {
        const Place at = place(std::min(surveyor.problem_at, text_.size()));
        throw tools::Failure(name_ + ":" + std::to_string(at.line) + ":" +
                             std::to_string(at.column) + ": " + surveyor.problem);
    }
    value_ = Json::parse(text_, nullptr, true, true);
}

LocatedJson::Place LocatedJson::place(size_t offset) const {
    const auto begin = text_.begin();
    const auto at = begin + static_cast<std::ptrdiff_t>(offset);
    const auto line = std::find(std::make_reverse_iterator(at), text_.rend(), '\n').base();
    return {1 + static_cast<size_t>(std::count(begin, at, '\n')),
            1 + static_cast<size_t>(at - line)};
}

std::string LocatedJson::fault(const std::string &pointer, const std::string &sentence) const {
    const auto known = offsets_.find(pointer);
    const Place at = place(known == offsets_.end() ? 0 : known->second);
    return name_ + ":" + std::to_string(at.line) + ":" + std::to_string(at.column) + ": " +
           (pointer.empty() ? "the scenario" : pointer) + " " + sentence;
}

}  // namespace fleet
