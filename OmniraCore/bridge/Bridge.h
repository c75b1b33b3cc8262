#pragma once
// The questions agents may put to Omnira: the one table of tools (name, description, input
// schema) that both the bridge and `omnira mcp` read, so agents see the descriptions word
// for word; the vocabulary of their arguments; and the bounds of their lists.
//
// Plain values and pure functions; any thread.

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <nlohmann/json.hpp>

namespace omnira {

class Bridge {
 public:
  using json = nlohmann::ordered_json;

  struct Tool {
    std::string name;
    std::string description;
    json schema;
  };

  enum class Metric { memory, cpu, power, disk, network };
  enum class Period { now, hour, day, week, month, quarter, halfYear, year };

  static constexpr size_t limit = 20;      // items in a list argument; apps top_apps returns
  static constexpr size_t portLimit = 50;  // ports a listing gives

  // One argument's schema: {"type": …, "description": …, "enum": […]}; an "array" type
  // takes the type of its items.
  struct Argument {
    std::string name;
    std::string type;  // "string", "integer", "boolean", "array"
    std::optional<std::string> description;
    std::vector<std::string> choices;  // "enum"
    std::optional<std::string> itemType;  // for "array"
  };
  // {"type": "object", "properties": …} with "required" only when some are.
  static json object(const std::vector<Argument>& properties, const std::vector<std::string>& required = {});

  // `systemName` stands where the tools name the operating system ("Debian GNU/Linux").
  static std::vector<Tool> tools(std::string_view systemName);  // the read-only ones, in order
  static std::vector<Tool> actions(std::string_view systemName);  // quit_app, stop_process
  static Tool request(std::string_view systemName);               // quit
  // Whether `name` is any of the tools above: exact and case-sensitive.
  static bool isTool(std::string_view name);
  static bool isAction(std::string_view name);  // quit, quit_app, stop_process

  static std::string_view rawValue(Metric metric);
  static std::optional<Metric> metric(std::string_view raw);
  static std::string_view rawValue(Period period);
  static std::optional<Period> period(std::string_view raw);
  // How far a period reaches back; 0 for now.
  static int64_t seconds(Period period);
  static const std::vector<std::string>& metricNames();
  static const std::vector<std::string>& periodNames();  // "now" first
};

}  // namespace omnira
