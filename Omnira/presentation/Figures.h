#pragma once
// How figures read on screen: "1.2 GB", "340 KB/s", "37 %". Plain functions, any thread.

#include <QString>

#include <cstdint>
#include <string_view>

namespace omnira::presentation {

QString bytesText(uint64_t bytes);
QString rateText(double bytesPerSecond);
// A fraction 0...1 as a whole percent.
QString percentText(double fraction);
// Process and file names are bytes: invalid UTF-8 shows as U+FFFD rather than vanishing.
QString nameText(std::string_view bytes);

}  // namespace omnira::presentation
