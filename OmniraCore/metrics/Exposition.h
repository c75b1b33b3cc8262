#pragma once
// Writes metric families in the Prometheus text format (0.0.4) or in OpenMetrics 1.0, as
// the scraper's Accept header asks. Label values are escaped (backslash, double quote,
// newline) and bytes that are not UTF-8 become U+FFFD, so the text is always valid.
// Plain functions; safe on any thread. Nothing here fails.

#include <string>
#include <string_view>
#include <vector>

#include "OmniraCore/metrics/MetricFamily.h"

namespace omnira {

enum class ExpositionFormat { prometheusText, openMetrics };

// https://openmetrics.io/ (the OpenMetrics text format)
// OpenMetrics only when the Accept header names application/openmetrics-text (without q=0).
ExpositionFormat negotiateExposition(std::string_view accept);
std::string_view contentType(ExpositionFormat format);

// https://prometheus.io/docs/instrumenting/exposition_formats/
std::string renderExposition(const std::vector<MetricFamily>& families, ExpositionFormat format);

// A label value as it goes between the quotes.
std::string escapeLabelValue(std::string_view bytes);

}  // namespace omnira
