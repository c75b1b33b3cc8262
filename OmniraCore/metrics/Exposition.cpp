#include "OmniraCore/metrics/Exposition.h"

#include <fmt/format.h>

#include <cmath>

#include "OmniraCore/foundation/Parse.h"
#include "OmniraCore/foundation/SystemText.h"

namespace omnira {

namespace {

// Escapes for HELP text; OpenMetrics escapes the double quote there too.
void appendHelp(std::string& out, std::string_view help, ExpositionFormat format) {
  for (char c : shownText(help)) {
    if (c == '\\') out += "\\\\";
    else if (c == '\n') out += "\\n";
    else if (c == '"' && format == ExpositionFormat::openMetrics) out += "\\\"";
    else out += c;
  }
}

void appendValue(std::string& out, double value) {
  if (std::isnan(value)) out += "NaN";
  else if (std::isinf(value)) out += value > 0 ? "+Inf" : "-Inf";
  // Whole numbers as whole numbers: byte counts read better than 1.2345e+10.
  else if (value == std::floor(value) && std::fabs(value) < 9007199254740992.0)
    fmt::format_to(std::back_inserter(out), "{}", static_cast<int64_t>(value));
  else
    fmt::format_to(std::back_inserter(out), "{}", value);
}

std::string_view typeName(MetricFamily::Type type) {
  switch (type) {
    case MetricFamily::Type::gauge: return "gauge";
    case MetricFamily::Type::counter: return "counter";
    case MetricFamily::Type::histogram: return "histogram";
  }
  return "gauge";
}

}  // namespace

std::string escapeLabelValue(std::string_view bytes) {
  std::string out;
  out.reserve(bytes.size());
  for (char c : shownText(bytes)) {
    if (c == '\\') out += "\\\\";
    else if (c == '"') out += "\\\"";
    else if (c == '\n') out += "\\n";
    else out += c;
  }
  return out;
}

ExpositionFormat negotiateExposition(std::string_view accept) {
  while (!accept.empty()) {
    const auto comma = accept.find(',');
    std::string_view range = accept.substr(0, comma);
    accept = comma == std::string_view::npos ? std::string_view() : accept.substr(comma + 1);
    const auto semicolon = range.find(';');
    if (lowered(trim(range.substr(0, semicolon))) != "application/openmetrics-text") continue;
    bool refused = false;
    std::string_view parameters = semicolon == std::string_view::npos ? std::string_view() : range.substr(semicolon + 1);
    while (!parameters.empty()) {
      const auto next = parameters.find(';');
      const auto parameter = trim(parameters.substr(0, next));
      parameters = next == std::string_view::npos ? std::string_view() : parameters.substr(next + 1);
      if (parameter.starts_with("q=")) {
        const auto q = parseNumber<double>(parameter.substr(2));
        refused = !q || !(*q > 0);
      }
    }
    if (!refused) return ExpositionFormat::openMetrics;
  }
  return ExpositionFormat::prometheusText;
}

std::string_view contentType(ExpositionFormat format) {
  return format == ExpositionFormat::openMetrics ? "application/openmetrics-text; version=1.0.0; charset=utf-8"
                                                 : "text/plain; version=0.0.4; charset=utf-8";
}

std::string renderExposition(const std::vector<MetricFamily>& families, ExpositionFormat format) {
  std::string out;
  out.reserve(families.size() * 256);
  for (const auto& family : families) {
    if (family.samples.empty()) continue;
    // The text format names a counter with its "_total"; OpenMetrics names the family without it.
    const bool counterInText = family.type == MetricFamily::Type::counter && format == ExpositionFormat::prometheusText;
    const std::string declared = counterInText ? family.name + "_total" : family.name;
    out += "# HELP ";
    out += declared;
    out += ' ';
    appendHelp(out, family.help, format);
    out += "\n# TYPE ";
    out += declared;
    out += ' ';
    out += typeName(family.type);
    out += '\n';
    for (const auto& sample : family.samples) {
      out += family.name;
      out += sample.suffix;
      if (!sample.labels.empty()) {
        out += '{';
        for (size_t i = 0; i < sample.labels.size(); ++i) {
          if (i > 0) out += ',';
          out += sample.labels[i].first;
          out += "=\"";
          out += escapeLabelValue(sample.labels[i].second);
          out += '"';
        }
        out += '}';
      }
      out += ' ';
      appendValue(out, sample.value);
      out += '\n';
    }
  }
  if (format == ExpositionFormat::openMetrics) out += "# EOF\n";
  return out;
}

}  // namespace omnira
