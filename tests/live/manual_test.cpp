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

TEST(ManualPages, NameEverySettingAndEveryCounter) {
    const std::string settingsPage = page("h323nat.conf.5");
    for (const Setting& setting : settings()) {
        EXPECT_NE(settingsPage.find(std::string(".BR ") + setting.name + " "), std::string::npos)
            << setting.name;
    }
    const std::string gatewayPage = page("h323nat-gateway.8");
    for (const CauseText& cause : causeTexts()) {
        EXPECT_NE(gatewayPage.find(std::string(".B ") + cause.name + "\n"), std::string::npos)
            << cause.name;
    }
}

} // namespace
} // namespace gateway
