#include "gateway/live/causes.h"
#include "gateway/live/config.h"
#include "gateway/live/counters.h"

#include <gtest/gtest.h>

#include <fstream>
#include <sstream>

namespace gateway {
namespace {

std::string page(const char* name) {
    std::ifstream file(std::string(MANUAL_FOLDER) + "/" + name);
    std::ostringstream text;
    text << file.rdbuf();
    std::string plain = text.str();
    for (size_t at = 0; (at = plain.find("\\-", at)) != std::string::npos;) {
        plain.erase(at, 1);
    }
    return plain;
}

TEST(ManualPages, NameEverySettingWithItsDefaultAndEveryCounter) {
    const std::string settingsPage = page("h323nat.conf.5");
    for (const Setting& setting : settings()) {
        const size_t begin = settingsPage.find(std::string(".BR ") + setting.name + " ");
        ASSERT_NE(begin, std::string::npos) << setting.name;
        const std::string text =
            settingsPage.substr(begin, settingsPage.find("\n.TP", begin) - begin);
        if (setting.initial != nullptr) {
            const std::string initial = std::string("Default: ") + setting.initial;
            const size_t at = text.find(initial);
            ASSERT_NE(at, std::string::npos) << text;
            EXPECT_NE(std::string(".,;").find(text.at(at + initial.size())), std::string::npos)
                << text;
        }
    }
    const std::string gatewayPage = page("h323nat-gateway.8");
    for (const CauseText& cause : causeTexts()) {
        EXPECT_NE(gatewayPage.find(std::string(".B ") + cause.name + "\n"), std::string::npos)
            << cause.name;
    }
}

} // namespace
} // namespace gateway
