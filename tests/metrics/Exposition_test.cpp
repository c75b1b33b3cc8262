#include "OmniraCore/metrics/Exposition.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "OmniraCore/foundation/SystemText.h"

namespace omnira {
namespace {

TEST(Exposition, EscapesLabelValuesAndKeepsTheTextUTF8) {
  EXPECT_EQ(escapeLabelValue(R"(say "hi")"), R"(say \"hi\")");
  EXPECT_EQ(escapeLabelValue("two\nlines"), R"(two\nlines)");
  // A lone byte that is not UTF-8, and a sequence cut short at the end.
  EXPECT_EQ(escapeLabelValue("bad\xff"), "bad\xEF\xBF\xBD");
  EXPECT_EQ(escapeLabelValue("cut\xC3"), "cut\xEF\xBF\xBD");

  MetricFamily family{"omnira_app_processes", "Processes.", MetricFamily::Type::gauge,
                      {{"", {{"app", "we\"ird\\\n\xfe"}, {"kind", "app"}}, 3}}};
  const auto text = renderExposition({family}, ExpositionFormat::prometheusText);
  EXPECT_NE(text.find("omnira_app_processes{app=\"we\\\"ird\\\\\\n\xEF\xBF\xBD\",kind=\"app\"} 3\n"), std::string::npos)
      << text;
  EXPECT_TRUE(isUTF8(text));
}

TEST(Exposition, WritesCountersHistogramsAndValuesAsEachFormatWants) {
  const std::vector<MetricFamily> families = {
      {"omnira_cpu_seconds", "CPU \"time\"\\by mode.", MetricFamily::Type::counter,
       {{"_total", {{"mode", "user"}}, 12.5}, {"_total", {{"mode", "idle"}}, 1e21}}},
      {"omnira_tick_duration_seconds", "Ticks.", MetricFamily::Type::histogram,
       {{"_bucket", {{"le", "0.5"}}, 1}, {"_bucket", {{"le", "+Inf"}}, 2}, {"_sum", {}, 0.75}, {"_count", {}, 2}}},
      {"omnira_empty", "Nothing.", MetricFamily::Type::gauge, {}},
      {"omnira_odd", "Odd values.", MetricFamily::Type::gauge,
       {{"", {{"v", "nan"}}, std::nan("")},
        {"", {{"v", "inf"}}, std::numeric_limits<double>::infinity()},
        {"", {{"v", "big"}}, 18446744073709551615.0},
        {"", {{"v", "bytes"}}, 8589934592.0}}},
  };
  const auto text = renderExposition(families, ExpositionFormat::prometheusText);
  EXPECT_NE(text.find("# HELP omnira_cpu_seconds_total CPU \"time\"\\\\by mode.\n"
                      "# TYPE omnira_cpu_seconds_total counter\n"
                      "omnira_cpu_seconds_total{mode=\"user\"} 12.5\n"
                      "omnira_cpu_seconds_total{mode=\"idle\"} 1e+21\n"),
            std::string::npos)
      << text;
  EXPECT_NE(text.find("# TYPE omnira_tick_duration_seconds histogram\n"
                      "omnira_tick_duration_seconds_bucket{le=\"0.5\"} 1\n"
                      "omnira_tick_duration_seconds_bucket{le=\"+Inf\"} 2\n"
                      "omnira_tick_duration_seconds_sum 0.75\n"
                      "omnira_tick_duration_seconds_count 2\n"),
            std::string::npos)
      << text;
  EXPECT_EQ(text.find("omnira_empty"), std::string::npos);  // a family without samples is left out
  EXPECT_NE(text.find("omnira_odd{v=\"nan\"} NaN\n"), std::string::npos);
  EXPECT_NE(text.find("omnira_odd{v=\"big\"} 1.8446744073709552e+19\n"), std::string::npos);
  EXPECT_FALSE(text.ends_with("# EOF\n"));

  const auto open = renderExposition(families, ExpositionFormat::openMetrics);
  EXPECT_NE(open.find("# HELP omnira_cpu_seconds CPU \\\"time\\\"\\\\by mode.\n"
                      "# TYPE omnira_cpu_seconds counter\n"
                      "omnira_cpu_seconds_total{mode=\"user\"} 12.5\n"),
            std::string::npos)
      << open;
  EXPECT_TRUE(open.ends_with("omnira_odd{v=\"bytes\"} 8589934592\n# EOF\n")) << open;
}

TEST(Exposition, NegotiatesOpenMetricsOnlyWhenTheScraperAsks) {
  // What Prometheus 2.42 sends.
  EXPECT_EQ(negotiateExposition("application/openmetrics-text;version=1.0.0,application/openmetrics-text;"
                                "version=0.0.1;q=0.75,text/plain;version=0.0.4;q=0.5,*/*;q=0.1"),
            ExpositionFormat::openMetrics);
  EXPECT_EQ(negotiateExposition("text/plain;version=0.0.4;q=1,*/*;q=0.1"), ExpositionFormat::prometheusText);
  EXPECT_EQ(negotiateExposition(""), ExpositionFormat::prometheusText);
  EXPECT_EQ(negotiateExposition("text/plain, application/openmetrics-text; q=0.2"), ExpositionFormat::openMetrics);
  EXPECT_TRUE(contentType(ExpositionFormat::openMetrics).starts_with("application/openmetrics-text; version=1.0.0"));
}

}  // namespace
}  // namespace omnira
