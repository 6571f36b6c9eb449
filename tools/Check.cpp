#include "Check.h"

#include <rapidjson/document.h>
#include <rapidjson/error/en.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <climits>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <map>
#include <set>

namespace fs = std::filesystem;

namespace pixmill::tool {

namespace {

// The library reads recipes strictly: no trailing commas, no comments.
constexpr unsigned kRecipeFlags = rapidjson::kParseIterativeFlag;

void Error(std::vector<Finding>& out, const std::string& text) { out.push_back({true, text}); }
void Warning(std::vector<Finding>& out, const std::string& text) { out.push_back({false, text}); }

const FilterInfo* Describe(const std::string& type, const std::vector<FilterInfo>& catalogue) {
    for (const FilterInfo& f : catalogue)
        if (f.name == type) return &f;
    return nullptr;
}

const PinInfo* PinOf(const FilterInfo& filter, int key) {
    for (const PinInfo& p : filter.pins)
        if (p.key == key) return &p;
    return nullptr;
}

bool IsOutputPin(const PinInfo& pin) { return pin.name.rfind("OUT_", 0) == 0; }

std::string StringOr(const rapidjson::Value& object, const char* key, bool& found) {
    found = false;
    if (!object.IsObject()) return "";
    auto it = object.FindMember(key);
    if (it == object.MemberEnd() || !it->value.IsString()) return "";
    found = true;
    return std::string(it->value.GetString(), it->value.GetStringLength());
}

// A pin key as the library reads it: a JSON number, truncated; anything else
// is 0, which links nothing.
int IntOf(const rapidjson::Value& object, const char* key) {
    if (!object.IsObject()) return 0;
    auto it = object.FindMember(key);
    if (it == object.MemberEnd() || !it->value.IsNumber()) return 0;
    if (it->value.IsInt()) return it->value.GetInt();
    const double d = std::trunc(it->value.GetDouble());
    return std::isfinite(d) && d <= INT_MAX && d >= INT_MIN ? static_cast<int>(d) : 0;
}

bool ReadNumber(const std::string& text, double& value) {
    if (text.empty()) return false;
    char* end = nullptr;
    value = std::strtod(text.c_str(), &end);
    return end != text.c_str();
}

std::string Quoted(const std::string& s) { return "'" + s + "'"; }

std::string Suggestions(const std::string& type, const std::vector<FilterInfo>& catalogue) {
    std::vector<std::string> near = NearestNames(type, catalogue);
    if (near.empty()) return " (pixmill filters lists them all)";
    std::string text = "; did you mean ";
    for (size_t i = 0; i < near.size(); ++i) text += (i ? ", " : "") + near[i];
    return text + "?";
}

// The "Params" entries of a node or override object, as key/value texts.
// Entries the library cannot read are findings of their own.
std::vector<std::pair<std::string, std::string>> ParamEntries(const rapidjson::Value& node,
                                                              const FilterInfo* filter,
                                                              const std::string& where,
                                                              std::vector<Finding>& out) {
    std::vector<std::pair<std::string, std::string>> entries;
    auto it = node.FindMember("Params");
    if (it == node.MemberEnd()) return entries;
    if (!it->value.IsArray()) {
        Warning(out, where + ": \"Params\" is not an array and is ignored");
        return entries;
    }
    size_t index = 0;
    for (const auto& entry : it->value.GetArray()) {
        ++index;
        bool hasKey = false, hasValue = false;
        std::string key = StringOr(entry, "Key", hasKey);
        std::string value = StringOr(entry, "Value", hasValue);
        if (!hasKey) {
            Warning(out, where + ": parameter entry " + std::to_string(index) + " has no \"Key\" text");
            continue;
        }
        if (!hasValue) {
            // The library reads a missing or non-text value as "", which no
            // number reads from.
            const ParamInfo* described = nullptr;
            if (filter)
                for (const ParamInfo& p : filter->params)
                    if (p.name == key) described = &p;
            const bool numeric = described && (described->type == "int" || described->type == "float");
            std::string text = where + ": parameter " + Quoted(key) +
                               ": \"Value\" must be a JSON string (\"Value\":\"12\"); the library reads it as \"\"";
            if (numeric) {
                Error(out, text + " and refuses the recipe");
            } else {
                Warning(out, text);
            }
            continue;
        }
        entries.emplace_back(key, value);
    }
    return entries;
}

struct Node {
    size_t index = 0;  // 1-based position in "Filters"
    std::string name, key, type;
    bool hasKey = false;
    const FilterInfo* filter = nullptr;
    const rapidjson::Value* json = nullptr;
    std::string Label() const {
        std::string label = "filter " + std::to_string(index);
        if (hasKey) label += " (Key " + Quoted(key) + (type.empty() ? "" : ", " + type) + ")";
        else if (!type.empty()) label += " (" + type + ")";
        return label;
    }
};

// Reports each cycle of links once, as "a -> b -> a" by keys.
void FindCycles(const std::vector<Node>& nodes, const std::vector<std::vector<size_t>>& upstream, std::vector<Finding>& out) {
    enum class Mark { kNew, kOnPath, kDone };
    std::vector<Mark> mark(nodes.size(), Mark::kNew);
    std::vector<size_t> path;
    // Iterative depth-first walk, so a long chain cannot exhaust the stack.
    for (size_t start = 0; start < nodes.size(); ++start) {
        if (mark[start] != Mark::kNew) continue;
        std::vector<std::pair<size_t, size_t>> stack{{start, 0}};
        mark[start] = Mark::kOnPath;
        path.assign(1, start);
        while (!stack.empty()) {
            auto& [at, next] = stack.back();
            if (next < upstream[at].size()) {
                const size_t to = upstream[at][next++];
                if (to == at) continue;  // a self-link is reported on its own
                if (mark[to] == Mark::kOnPath) {
                    auto from = std::find(path.begin(), path.end(), to);
                    std::string chain;
                    for (auto p = from; p != path.end(); ++p) chain += Quoted(nodes[*p].key) + " <- ";
                    Error(out, "links form a cycle: " + chain + Quoted(nodes[to].key) +
                                   " (each filter waits for the next)");
                } else if (mark[to] == Mark::kNew) {
                    mark[to] = Mark::kOnPath;
                    path.push_back(to);
                    stack.emplace_back(to, 0);
                }
            } else {
                mark[at] = Mark::kDone;
                path.pop_back();
                stack.pop_back();
            }
        }
    }
}

void CheckLinks(std::vector<Node>& nodes, std::vector<Finding>& out) {
    std::map<std::string, size_t> firstByKey;
    for (size_t i = 0; i < nodes.size(); ++i) {
        if (!nodes[i].hasKey) continue;
        auto [it, inserted] = firstByKey.emplace(nodes[i].key, i);
        if (!inserted)
            Warning(out, nodes[i].Label() + ": Key " + Quoted(nodes[i].key) + " is taken by filter " +
                             std::to_string(nodes[it->second].index) +
                             "; links and overrides reach only that one");
    }
    std::vector<std::vector<size_t>> upstream(nodes.size());
    for (size_t i = 0; i < nodes.size(); ++i) {
        const Node& node = nodes[i];
        auto pins = node.json->FindMember("Pins");
        if (pins == node.json->MemberEnd() || !pins->value.IsArray()) continue;
        for (const auto& pin : pins->value.GetArray()) {
            if (!pin.IsObject()) continue;
            auto link = pin.FindMember("Link");
            if (link == pin.MemberEnd()) continue;
            const int pinKey = IntOf(pin, "Key");
            const std::string at = node.Label() + ", pin " + std::to_string(pinKey);
            if (!node.hasKey) {
                Error(out, at + ": a filter without a \"Key\" text cannot be linked");
                continue;
            }
            if (pinKey == 0) {
                Error(out, at + ": the pin has no \"Key\" number, so its link joins nothing");
                continue;
            }
            if (node.filter) {
                const PinInfo* own = PinOf(*node.filter, pinKey);
                if (!own) {
                    Error(out, at + ": " + node.type + " has no pin " + std::to_string(pinKey));
                    continue;
                }
                if (IsOutputPin(*own)) {
                    Error(out, at + ": pin " + own->name + " is an output; links go on input pins");
                    continue;
                }
            }
            bool hasFilterKey = false;
            const std::string filterKey = StringOr(link->value, "FilterKey", hasFilterKey);
            const int upstreamPin = IntOf(link->value, "PinKey");
            if (!hasFilterKey) {
                Error(out, at + ": the link has no \"FilterKey\" text");
                continue;
            }
            if (filterKey == node.key) {
                Error(out, at + ": the filter links to itself");
                continue;
            }
            auto source = firstByKey.find(filterKey);
            if (source == firstByKey.end()) {
                Error(out, at + ": links to filter Key " + Quoted(filterKey) + ", which no filter has");
                continue;
            }
            const Node& from = nodes[source->second];
            if (upstreamPin == 0) {
                Error(out, at + ": the link has no \"PinKey\" number, so it joins nothing");
                continue;
            }
            if (from.filter) {
                const PinInfo* theirs = PinOf(*from.filter, upstreamPin);
                if (!theirs || !IsOutputPin(*theirs)) {
                    std::string outs;
                    for (const PinInfo& p : from.filter->pins)
                        if (IsOutputPin(p)) outs += (outs.empty() ? "" : ", ") + std::to_string(p.key);
                    Error(out, at + ": links to pin " + std::to_string(upstreamPin) + " of " + from.Label() +
                                   ", which is no output pin (outputs: " + (outs.empty() ? "none" : outs) +
                                   ")");
                    continue;
                }
            }
            upstream[i].push_back(source->second);
        }
    }
    FindCycles(nodes, upstream, out);
}

// Reads a whole text as one JSON document, or says where it stops.
bool ParseRecipe(const std::string& text, rapidjson::Document& doc, std::vector<Finding>& out,
                 const char* what) {
    doc.Parse<kRecipeFlags>(text.c_str(), text.size());
    if (!doc.HasParseError()) return true;
    Error(out, std::string(what) + " is not valid JSON: " +
                   JsonErrorText(text, doc.GetErrorOffset(), rapidjson::GetParseError_En(doc.GetParseError())));
    return false;
}

std::vector<Node> NodesOf(const rapidjson::Document& doc, const std::vector<FilterInfo>& catalogue) {
    std::vector<Node> nodes;
    const auto& filters = doc["Filters"];
    for (rapidjson::SizeType i = 0; i < filters.Size(); ++i) {
        Node node;
        node.index = i + 1;
        node.json = &filters[i];
        bool found = false;
        node.name = StringOr(filters[i], "Name", found);
        node.key = StringOr(filters[i], "Key", node.hasKey);
        node.type = StringOr(filters[i], "Type", found);
        node.filter = Describe(node.type, catalogue);
        nodes.push_back(node);
    }
    return nodes;
}

}  // namespace

bool HasErrors(const std::vector<Finding>& findings) {
    return std::any_of(findings.begin(), findings.end(), [](const Finding& f) { return f.error; });
}

void CheckParams(const FilterInfo& filter, const std::vector<std::pair<std::string, std::string>>& params,
                 const std::string& where, std::vector<Finding>& out) {
    for (const auto& [key, value] : params) {
        const ParamInfo* described = nullptr;
        for (const ParamInfo& p : filter.params)
            if (p.name == key) described = &p;
        const std::string at = where + ": parameter " + Quoted(key);
        if (!described) {
            std::string known;
            for (const ParamInfo& p : filter.params) known += (known.empty() ? "" : ", ") + p.name;
            Warning(out, at + " is not a parameter of " + filter.name + " and is ignored (it has: " +
                             (known.empty() ? "none" : known) + ")");
            continue;
        }
        const std::string& type = described->type;
        if (type == "double") {
            Warning(out, at + " is a double, which the library does not set from text: it keeps " +
                             (described->defaultValue.empty() ? "its default" : described->defaultValue));
            continue;
        }
        if (type == "bool") {
            const bool isTrue = value.rfind("TRUE", 0) == 0 || value.rfind("True", 0) == 0 || value.rfind("true", 0) == 0;
            const bool isFalse = value == "false" || value == "False" || value == "FALSE";
            if (!isTrue && !isFalse)
                Warning(out, at + " = " + Quoted(value) + " reads as false (only text starting with true is true)");
            continue;
        }
        if (type != "int" && type != "float") continue;  // text takes anything

        // The library's reading: the leading number, white space skipped,
        // anything after it ignored.
        const char* begin = value.c_str();
        while (*begin && std::isspace(static_cast<unsigned char>(*begin))) ++begin;
        char* end = nullptr;
        double number = 0;
        errno = 0;
        if (type == "int") {
            const char* digits = begin + ((*begin == '+' || *begin == '-') ? 1 : 0);
            if (!std::isdigit(static_cast<unsigned char>(*digits))) {
                Error(out, at + " = " + Quoted(value) + " is not an integer; the library refuses it");
                continue;
            }
            const long long n = std::strtoll(begin, &end, 10);
            if (errno == ERANGE || n > INT_MAX || n < INT_MIN) {
                Error(out, at + " = " + Quoted(value) + " is beyond the 32-bit range; the library refuses it");
                continue;
            }
            number = static_cast<double>(n);
        } else {
            const float f = std::strtof(begin, &end);
            if (end == begin) {
                Error(out, at + " = " + Quoted(value) + " is not a number; the library refuses it");
                continue;
            }
            if (errno == ERANGE && std::isinf(f)) {
                Error(out, at + " = " + Quoted(value) + " is beyond the float range; the library refuses it");
                continue;
            }
            number = f;
            if (!std::isfinite(number)) {
                Warning(out, at + " = " + Quoted(value) + " is not a finite number");
                continue;
            }
        }
        if (end && *end)
            Warning(out, at + " = " + Quoted(value) + ": the text after the number is ignored");
        double low = 0, high = 0;
        const bool hasLow = ReadNumber(described->min, low);
        const bool hasHigh = ReadNumber(described->max, high);
        if (hasLow && hasHigh && low <= high && (number < low || number > high))
            Warning(out, at + " = " + Quoted(value) + " is outside the described range " + described->min + ".." +
                             described->max + " (the library runs it as given)");
    }
}

RecipeCheck CheckRecipe(const std::string& text, const std::vector<FilterInfo>& catalogue) {
    RecipeCheck check;
    std::vector<Finding>& out = check.findings;
    rapidjson::Document doc;
    if (!ParseRecipe(text, doc, out, "the recipe")) return check;
    if (!doc.IsObject() || !doc.HasMember("Filters") || !doc["Filters"].IsArray()) {
        Error(out, "the recipe is not a JSON object with a \"Filters\" array, so it has no filters");
        return check;
    }
    std::vector<Node> nodes = NodesOf(doc, catalogue);
    if (nodes.empty()) Error(out, "the recipe's \"Filters\" array is empty");

    size_t endPoints = 0;
    for (Node& node : nodes) {
        if (!node.json->IsObject()) {
            Warning(out, node.Label() + " is not a JSON object and is skipped");
            continue;
        }
        if (node.type.empty() && !node.json->HasMember("Type")) {
            Warning(out, node.Label() + " has no \"Type\" and is skipped");
            continue;
        }
        auto end = node.json->FindMember("IsEndPoint");
        if (end != node.json->MemberEnd()) {
            if (end->value.IsTrue()) {
                ++endPoints;
                if (node.filter)
                    for (const PinInfo& p : node.filter->pins) check.endPointOutputs += IsOutputPin(p) ? 1 : 0;
            } else if (!end->value.IsFalse()) {
                Warning(out, node.Label() + ": \"IsEndPoint\" counts only as the JSON literal true");
            }
        }
        if (!node.filter) {
            Error(out, node.Label() + ": unknown filter type " + Quoted(node.type) + Suggestions(node.type, catalogue));
            continue;
        }
        std::vector<std::pair<std::string, std::string>> params = ParamEntries(*node.json, node.filter, node.Label(), out);
        CheckParams(*node.filter, params, node.Label(), out);
    }
    if (!nodes.empty() && endPoints == 0)
        Error(out, "no filter is an end point (\"IsEndPoint\":true), so running the recipe does nothing");
    CheckLinks(nodes, out);
    return check;
}

std::vector<Finding> CheckOverride(const std::string& overrideText, const std::string& recipeText,
                                   const std::vector<FilterInfo>& catalogue) {
    std::vector<Finding> out;
    rapidjson::Document doc;
    std::vector<Finding> syntax;
    if (!ParseRecipe(overrideText, doc, syntax, "the override document"))
        throw UsageError(syntax.front().text);
    if (!doc.IsObject()) throw UsageError("the override document is not a JSON object");
    rapidjson::Document recipe;
    recipe.Parse<kRecipeFlags>(recipeText.c_str(), recipeText.size());
    std::vector<Node> nodes;
    if (!recipe.HasParseError() && recipe.IsObject() && recipe.HasMember("Filters") && recipe["Filters"].IsArray())
        nodes = NodesOf(recipe, catalogue);
    for (const auto& member : doc.GetObject()) {
        const std::string name(member.name.GetString(), member.name.GetStringLength());
        const std::string where = "override " + Quoted(name);
        // The library looks a filter's member up by its Key first, then by its Name.
        const Node* target = nullptr;
        for (const Node& n : nodes) {
            if ((n.hasKey && n.key == name) || n.name == name) {
                target = &n;
                break;
            }
        }
        if (!target) {
            Warning(out, where + " names no filter of the recipe (by Key or Name) and changes nothing");
            continue;
        }
        if (!member.value.IsObject()) {
            Warning(out, where + " is not a JSON object and changes nothing");
            continue;
        }
        if (!target->filter) continue;
        std::vector<std::pair<std::string, std::string>> params = ParamEntries(member.value, target->filter, where, out);
        CheckParams(*target->filter, params, where, out);
    }
    return out;
}

std::string OverrideArgumentText(const std::string& argument) {
    std::error_code ec;
    if (fs::is_regular_file(argument, ec)) return Narrow(ReadTextFile(argument));
    if (fs::is_directory(argument, ec)) throw UsageError("--override: " + argument + " is a directory");
    rapidjson::Document doc;
    doc.Parse<kRecipeFlags>(argument.c_str(), argument.size());
    if (doc.HasParseError())
        throw UsageError("--override " + Quoted(argument) + " is neither an existing file nor valid JSON (" +
                         JsonErrorText(argument, doc.GetErrorOffset(), rapidjson::GetParseError_En(doc.GetParseError())) +
                         ")");
    return argument;
}

size_t CheckBeforeRun(const std::string& recipeText, const std::string& overrideText) {
    const std::vector<FilterInfo> catalogue = FilterCatalogue();
    RecipeCheck check = CheckRecipe(recipeText, catalogue);
    if (!overrideText.empty() && !HasErrors(check.findings)) {
        std::vector<Finding> more = CheckOverride(overrideText, recipeText, catalogue);
        check.findings.insert(check.findings.end(), more.begin(), more.end());
    }
    size_t errors = 0;
    for (const Finding& f : check.findings) {
        errors += f.error ? 1 : 0;
        ErrorLine(std::string("pixmill: ") + (f.error ? "error: " : "warning: ") + f.text);
    }
    if (errors > 0)
        throw ToolError("the recipe was not run: " + std::to_string(errors) +
                        (errors == 1 ? " error" : " errors") + " (pixmill check RECIPE lists them)");
    return check.endPointOutputs;
}

void WarnAboutSettings(const FilterInfo& filter, const std::vector<std::pair<std::string, std::string>>& params) {
    std::vector<Finding> findings;
    CheckParams(filter, params, filter.name, findings);
    for (const Finding& f : findings)
        if (!f.error) ErrorLine("pixmill: warning: " + f.text);
}

int CommandCheck(const std::string& recipePath, const std::string& overrideArg) {
    const std::string text = Narrow(ReadTextFile(recipePath));
    const std::vector<FilterInfo> catalogue = FilterCatalogue();
    RecipeCheck check = CheckRecipe(text, catalogue);
    if (!overrideArg.empty() && !HasErrors(check.findings)) {
        std::vector<Finding> more = CheckOverride(OverrideArgumentText(overrideArg), text, catalogue);
        check.findings.insert(check.findings.end(), more.begin(), more.end());
    }
    for (const Finding& f : check.findings)
        std::cout << recipePath << ": " << (f.error ? "error: " : "warning: ") << f.text << "\n";
    if (check.findings.empty()) std::cout << recipePath << ": ok\n";
    return HasErrors(check.findings) ? kExitFailed : kExitOk;
}

}  // namespace pixmill::tool
