// The helper-role classifiers, with the cases where the rules pull against each other.

#include "OmniraCore/sampling/HelperRole.h"

#include <gtest/gtest.h>

namespace omnira {
namespace {

using Args = std::vector<std::string>;
using helper_role::classify;

TEST(HelperRole, ChromiumAndGeckoArguments) {
  using helper_role::parse;
  EXPECT_EQ(parse({}), std::nullopt);
  EXPECT_EQ(parse({"/opt/chrome/chrome", "--no-sandbox"}), std::nullopt);
  EXPECT_EQ(parse({"chrome", "--type=renderer"}), HelperRole::renderer);
  EXPECT_EQ(parse({"chrome", "--type=utility", "--utility-sub-type=network.mojom.NetworkService"}),
            HelperRole::network);
  EXPECT_EQ(parse({"code", "--utility-sub-type=node.mojom.NodeService", "--type=utility"}), HelperRole::extensionHost);
  EXPECT_EQ(parse({"chrome", "--type=utility"}), HelperRole::other);
  // "--extension-process" wins wherever it stands.
  EXPECT_EQ(parse({"chrome", "--type=renderer", "--extension-process"}), HelperRole::extensionHost);
  // A later type or sub-type replaces an earlier one.
  EXPECT_EQ(parse({"chrome", "--type=gpu-process", "--type=renderer"}), HelperRole::renderer);
  // Prefixes must match exactly.
  EXPECT_EQ(parse({"chrome", "--typo=renderer", "-type=renderer"}), std::nullopt);

  // Gecko: by the content-process argument.
  using helper_role::parseGecko;
  EXPECT_EQ(parseGecko({"tab"}), std::nullopt);  // a single argument decides nothing
  EXPECT_EQ(parseGecko({"plugin-container", "tab"}), HelperRole::renderer);

  // On Linux the browser's own executable runs its children with "-contentproc".
  const Args tab = {"/usr/lib/firefox-esr/firefox-esr", "-contentproc", "-childID", "1", "-isForBrowser",
                    "{0f9a1c2e-aa10-4b8e-9a55-1d2b3c4d5e6f}", "3", "true", "tab"};
  EXPECT_EQ(classify(std::string("/usr/lib/firefox-esr/firefox-esr"), tab), HelperRole::renderer);
  EXPECT_EQ(classify(std::string("/usr/lib/firefox/firefox"), {"/usr/lib/firefox/firefox", "-contentproc", "8", "socket"}),
            HelperRole::network);
  // The browser itself is no helper.
  EXPECT_EQ(classify(std::string("/usr/lib/firefox/firefox"), {"/usr/lib/firefox/firefox", "-new-window"}), std::nullopt);
}

TEST(HelperRole, WebKitHelpersByPath) {
  using helper_role::webKitRole;
  const std::string xpc = "/System/Library/Frameworks/WebKit.framework/Versions/A/XPCServices/";
  EXPECT_EQ(webKitRole(xpc + "com.apple.WebKit.WebContent.xpc/Contents/MacOS/com.apple.WebKit.WebContent"),
            HelperRole::renderer);

  const std::string gtk = "/usr/lib/x86_64-linux-gnu/webkit2gtk-4.1/";
  EXPECT_EQ(webKitRole(gtk + "WebKitWebProcess"), HelperRole::renderer);
  EXPECT_EQ(webKitRole("/usr/bin/WebKitWebDriver"), std::nullopt);

  // A WebKit helper started with Chromium-looking arguments is still judged by its path.
  EXPECT_EQ(classify(gtk + "WebKitNetworkProcess", {"WebKitNetworkProcess", "--type=renderer"}), HelperRole::network);
  EXPECT_EQ(classify(std::nullopt, {"chrome", "--type=renderer"}), HelperRole::renderer);
  EXPECT_EQ(classify(std::nullopt, {}), std::nullopt);
}

}  // namespace
}  // namespace omnira
