// Dismissing from the window's Worth a Look list, with a running store and its real file.

#include "Omnira/presentation/WorthALookModel.h"

#include <gtest/gtest.h>

#include "OmniraCore/history/WorthALook.h"
#include "tests/Omnira/presentation/RunningStore.h"

namespace omnira::presentation {
namespace {

Insight insight(const std::string& title) {
  Insight made;
  made.id = UUID::random();
  made.date = std::chrono::system_clock::now();
  made.kind = Insight::Kind::networkBurst;
  made.title = title;
  made.detail = "It moved 3 GB in five minutes.";
  return made;
}

class WorthALookModelTest : public testing::RunningStore {};

TEST_F(WorthALookModelTest, ADismissedInsightStaysDismissed) {
  auto& store = start();
  WorthALookModel model(&store, paths().dataFile("insights.json"));
  const Insight curl = insight("curl is moving a lot of data"), wget = insight("wget is moving a lot of data");
  store.noteInsights({curl, wget});
  ASSERT_EQ(model.count(), 2);

  const auto idOf = [&](int row) { return model.index(row).data(WorthALookModel::idRole).toString().toStdString(); };
  EXPECT_TRUE(model.dismiss(QString::fromStdString(curl.id.string())));
  // Gone from the list at once, and from the file the store and `omnira insights` share.
  ASSERT_EQ(model.count(), 1);
  EXPECT_EQ(idOf(0), wget.id.string());
  EXPECT_TRUE(model.problem().isEmpty());
  auto onDisk = WorthALook::load(paths().dataFile("insights.json"));
  ASSERT_TRUE(onDisk);
  ASSERT_EQ(onDisk->insights().size(), 1u);
  EXPECT_EQ(onDisk->insights()[0].id, wget.id);

  // The store reads the file back; its next saves and new insights do not bring it back.
  ASSERT_TRUE(runUntil([&] { return store.insights().size() == 1; }));
  const Insight disk = insight("dd is writing a lot");
  store.noteInsights({disk});
  store.saveInsights();
  ASSERT_EQ(model.count(), 2);
  EXPECT_EQ(idOf(0), disk.id.string());
  EXPECT_EQ(idOf(1), wget.id.string());
  store.stop();
  onDisk = WorthALook::load(paths().dataFile("insights.json"));
  ASSERT_TRUE(onDisk);
  for (const auto& kept : onDisk->insights()) EXPECT_NE(kept.id, curl.id);

  // A file that cannot be written keeps the row and says why.
  EXPECT_FALSE(model.dismiss("not an id"));
  std::filesystem::remove_all(root_ / "data");
  std::ofstream(root_ / "data") << "a file where the folder was";
  EXPECT_FALSE(model.dismiss(QString::fromStdString(wget.id.string())));
  EXPECT_EQ(model.count(), 2);
  EXPECT_FALSE(model.problem().isEmpty());
}

}  // namespace
}  // namespace omnira::presentation
