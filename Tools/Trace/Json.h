#pragma once
// A small JSON reader for trace files: the whole text into a tree, or a message saying where it broke.

#include <map>
#include <memory>
#include <string>
#include <vector>

namespace TraceSummary {

struct JsonValue {
    enum class Kind { Null, Bool, Number, String, Array, Object };
    Kind kind = Kind::Null;
    bool boolean = false;
    double number = 0;
    std::string text;
    std::vector<JsonValue> items;
    std::map<std::string, JsonValue> members;

    // The member's value, or null when this is no object or has no such member.
    const JsonValue* Find(const std::string& name) const;
};

// Parses `text` whole. On a fault returns false with `error` naming it and its byte offset.
bool ParseJson(const std::string& text, JsonValue& value, std::string& error);

}  // namespace TraceSummary
