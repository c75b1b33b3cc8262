// A chart saved as a picture: a real PNG of the chart's own painting, under a new name each
// time, never through a link planted in the Downloads folder.

#include "Omnira/presentation/ChartItem.h"

#include <QClipboard>
#include <QGuiApplication>
#include <QImage>
#include <QPalette>

#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <sstream>

#include <gtest/gtest.h>

#include "tests/Omnira/QtTestApp.h"

namespace omnira::presentation {
namespace {

namespace fs = std::filesystem;

TEST(ChartExportTest, SavesANewPNGOfTheChartEachTime) {
  testing::qtTestApp();
  const fs::path folder = fs::temp_directory_path() / ("omnira-chart-" + std::to_string(::getpid())) / "Downloads";
  fs::remove_all(folder.parent_path());

  ChartItem chart;
  chart.setSize(QSizeF(240, 110));
  chart.setProperty("values", QVariant::fromValue(QList<qreal>(60, 0.5)));  // half full across
  chart.setProperty("color", QColor(0xff, 0, 0));
  chart.setProperty("gridColor", QColor(Qt::transparent));
  chart.setProperty("exportName", QStringLiteral("CPU"));

  auto first = chart.savePNG(folder);  // the folder is made
  ASSERT_TRUE(first) << first.error().message;
  EXPECT_EQ(*first, folder / "CPU.png");
  QImage saved;
  ASSERT_TRUE(saved.load(QString::fromStdString(first->string()), "PNG"));
  EXPECT_EQ(saved.size(), QSize(240, 110));
  // The chart's painting: the fill below the line, the background above it.
  const QColor base = QGuiApplication::palette().color(QPalette::Base);
  EXPECT_EQ(saved.pixelColor(120, 20).rgb(), base.rgb());
  const QColor filled = saved.pixelColor(120, 95);
  EXPECT_NE(filled.rgb(), base.rgb());
  EXPECT_GT(filled.red(), filled.blue());

  auto second = chart.savePNG(folder);
  ASSERT_TRUE(second) << second.error().message;
  EXPECT_EQ(*second, folder / "CPU (2).png");
  EXPECT_TRUE(saved.load(QString::fromStdString(first->string()), "PNG"));  // the first one is kept

  // A link waiting at the next name is neither followed nor replaced.
  const fs::path victim = folder.parent_path() / "victim.txt";
  std::ofstream(victim) << "keep";
  fs::create_symlink(victim, folder / "CPU (3).png");
  auto third = chart.savePNG(folder);
  ASSERT_TRUE(third) << third.error().message;
  EXPECT_EQ(*third, folder / "CPU (4).png");
  EXPECT_TRUE(fs::is_symlink(folder / "CPU (3).png"));
  std::stringstream kept;
  kept << std::ifstream(victim).rdbuf();
  EXPECT_EQ(kept.str(), "keep");

  // A folder that cannot be made is said in a sentence.
  std::ofstream(folder.parent_path() / "file") << "x";
  auto refused = chart.savePNG(folder.parent_path() / "file" / "Downloads");
  ASSERT_FALSE(refused);
  EXPECT_FALSE(refused.error().message.empty());

  // Copy puts the same picture on the clipboard.
  chart.copyImage();
  EXPECT_EQ(QGuiApplication::clipboard()->image().size(), QSize(240, 110));
  EXPECT_EQ(chart.exportNote(), "Copied");
  fs::remove_all(folder.parent_path());
}

}  // namespace
}  // namespace omnira::presentation
