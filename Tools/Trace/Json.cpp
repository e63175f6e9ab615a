#include "Json.h"

#include <cstdlib>

namespace TraceSummary {

namespace {

// Deeper nesting than any trace has: refused rather than recursed into.
constexpr int kMaxDepth = 64;

class Parser {
public:
    explicit Parser(const std::string& text) : text_(text) {}

    bool Document(JsonValue& value, std::string& error) {
        SkipBlanks();
        if (!Value(value, 0) || (SkipBlanks(), position_ != text_.size() && Fail("text after the JSON value"))) {
            error = problem_ + " at byte " + std::to_string(position_);
            return false;
        }
        return true;
    }

private:
    bool Fail(const char* what) {
        if (problem_.empty()) {
            problem_ = position_ >= text_.size() ? std::string("unexpected end of file (truncated?)") : what;
        }
        return false;
    }

    void SkipBlanks() {
        while (position_ < text_.size() && (text_[position_] == ' ' || text_[position_] == '\n' ||
                                            text_[position_] == '\r' || text_[position_] == '\t')) {
            ++position_;
        }
    }

    bool Literal(const char* word) {
        const std::string expected = word;
        if (text_.compare(position_, expected.size(), expected) != 0) {
            return Fail("unknown word");
        }
        position_ += expected.size();
        return true;
    }

    bool Value(JsonValue& value, int depth) {
        if (depth > kMaxDepth) {
            return Fail("nested too deeply");
        }
        if (position_ >= text_.size()) {
            return Fail("");
        }
        switch (text_[position_]) {
            case '{': return Object(value, depth);
            case '[': return Array(value, depth);
            case '"': value.kind = JsonValue::Kind::String; return String(value.text);
            case 't':
                value.kind = JsonValue::Kind::Bool;
                value.boolean = true;
                return Literal("true");
            case 'f': value.kind = JsonValue::Kind::Bool; return Literal("false");
            case 'n': return Literal("null");
            default: return Number(value);
        }
    }

    bool Number(JsonValue& value) {
        const std::size_t start = position_;
        if (position_ < text_.size() && text_[position_] == '-') {
            ++position_;
        }
        const std::size_t digits = position_;
        while (position_ < text_.size() && std::string("0123456789.eE+-").find(text_[position_]) != std::string::npos) {
            ++position_;
        }
        if (position_ == digits) {
            return Fail("not a JSON value");
        }
        const std::string slice = text_.substr(start, position_ - start);
        char* end = nullptr;
        value.number = std::strtod(slice.c_str(), &end);
        if (end != slice.c_str() + slice.size()) {
            position_ = start;
            return Fail("malformed number");
        }
        value.kind = JsonValue::Kind::Number;
        return true;
    }

    bool String(std::string& out) {
        ++position_;  // the opening quote
        while (position_ < text_.size()) {
            const char c = text_[position_++];
            if (c == '"') {
                return true;
            }
            if (static_cast<unsigned char>(c) < 0x20) {
                return Fail("control character in a string");
            }
            if (c != '\\') {
                out += c;
                continue;
            }
            if (position_ >= text_.size()) {
                break;
            }
            const char escaped = text_[position_++];
            const std::string plain = "\"\\/bfnrt";
            const std::string meant = "\"\\/\b\f\n\r\t";
            if (plain.find(escaped) != std::string::npos) {
                out += meant[plain.find(escaped)];
            } else if (escaped == 'u') {
                if (position_ + 4 > text_.size()) {
                    position_ = text_.size();
                    return Fail("");
                }
                const std::string hex = text_.substr(position_, 4);
                char* end = nullptr;
                const unsigned long code = std::strtoul(hex.c_str(), &end, 16);
                if (end != hex.c_str() + 4) {
                    return Fail("bad \\u escape");
                }
                position_ += 4;
                // Names and texts in traces are ASCII; anything else is kept as one placeholder.
                out += code < 0x80 ? static_cast<char>(code) : '?';
            } else {
                return Fail("bad escape");
            }
        }
        return Fail("");
    }

    bool Array(JsonValue& value, int depth) {
        value.kind = JsonValue::Kind::Array;
        ++position_;
        SkipBlanks();
        if (position_ < text_.size() && text_[position_] == ']') {
            ++position_;
            return true;
        }
        while (true) {
            value.items.emplace_back();
            SkipBlanks();
            if (!Value(value.items.back(), depth + 1)) {
                return false;
            }
            SkipBlanks();
            if (position_ >= text_.size()) {
                return Fail("");
            }
            const char next = text_[position_++];
            if (next == ']') {
                return true;
            }
            if (next != ',') {
                --position_;
                return Fail("expected , or ] in an array");
            }
        }
    }

    bool Object(JsonValue& value, int depth) {
        value.kind = JsonValue::Kind::Object;
        ++position_;
        SkipBlanks();
        if (position_ < text_.size() && text_[position_] == '}') {
            ++position_;
            return true;
        }
        while (true) {
            SkipBlanks();
            if (position_ >= text_.size() || text_[position_] != '"') {
                return Fail("expected a member name");
            }
            std::string name;
            if (!String(name)) {
                return false;
            }
            SkipBlanks();
            if (position_ >= text_.size() || text_[position_] != ':') {
                return Fail("expected : after a member name");
            }
            ++position_;
            SkipBlanks();
            if (!Value(value.members[name], depth + 1)) {
                return false;
            }
            SkipBlanks();
            if (position_ >= text_.size()) {
                return Fail("");
            }
            const char next = text_[position_++];
            if (next == '}') {
                return true;
            }
            if (next != ',') {
                --position_;
                return Fail("expected , or } in an object");
            }
        }
    }

    const std::string& text_;
    std::size_t position_ = 0;
    std::string problem_;
};

}  // namespace

const JsonValue* JsonValue::Find(const std::string& name) const {
    const auto found = members.find(name);
    return kind == Kind::Object && found != members.end() ? &found->second : nullptr;
}

bool ParseJson(const std::string& text, JsonValue& value, std::string& error) {
    value = JsonValue();
    return Parser(text).Document(value, error);
}

}  // namespace TraceSummary
