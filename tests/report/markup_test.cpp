// What packets and file names say cannot become part of the page.
#include "report/call_page.h"
#include "report/markup.h"

#include <gtest/gtest.h>

#include <sstream>

namespace {

using namespace report;

const std::string hostile = "</script><script>alert(1)</script><!--\"'\x01\xFF&";

TEST(Markup, TextStaysText) {
    EXPECT_EQ(escaped("<a b=\"c\" d='e'>&\x01\x7F"),
              "&lt;a b=&quot;c&quot; d=&#39;e&#39;&gt;&amp;  ");
    EXPECT_EQ(validText("\xC3\xA9\xFF"), "\xC3\xA9\xEF\xBF\xBD");
    EXPECT_EQ(scriptData("\"</script><!--\""), "\"\\u003c/script>\\u003c!--\"");
}

TEST(Markup, AliasesSteerNothing) {
    using namespace std::string_literals;
    const std::string hidden = "\xEF\xBF\xBD";
    for (const auto& [characters, text] :
         {std::pair{"5551212"s, "5551212"s}, std::pair{"\0a\x4E\x2D"s, "a\xE4\xB8\xAD"s},
          std::pair{"\x1B[31m!!"s, hidden + "[31m!!"}, std::pair{"a\x80z"s, "a" + hidden + "z"},
          std::pair{"\0\x1B\0["s, hidden + "["}, std::pair{"\0a\x20\x2E\0b"s, "a" + hidden + "b"},
          std::pair{"\xD8\x3D\0b"s, hidden + "b"}, std::pair{""s, ""s}}) {
        EXPECT_EQ(gateway::aliasText(characters), text);
    }
}

TEST(Markup, NothingOfAPacketEndsUpAsMarkup) {
    CallRecord record;
    record.isCall = true;
    record.start = 0;
    record.callingAlias = hostile;
    record.calledAlias = hostile;
    record.verdict = hostile;
    record.findings.push_back({Severity::Trouble, hostile, 0});
    LadderMessage& message = record.messages.emplace_back();
    message.time = 0;
    message.content.role = H323NAT_ROLE_SIGNALLING;
    message.content.name = hostile;
    message.content.octets.assign(hostile.begin(), hostile.end());
    message.content.rewritten.push_back({hostile, 0, {1, 2}, {3, 4}, 0});
    message.remaining.push_back({hostile, 0, {1, 2}, {1, 2}, 0});
    std::ostringstream out;
    writeCallPage(out, {hostile, hostile, 0, 0}, {record});
    const std::string page = out.str();
    EXPECT_EQ(page.find("<script>alert"), std::string::npos);
    EXPECT_EQ(page.find("<!--"), std::string::npos);
    size_t ends = 0;
    for (size_t at = page.find("</script>"); at != std::string::npos;
         at = page.find("</script>", at + 1)) {
        ++ends;
    }
    EXPECT_EQ(ends, 2U) << "the data's and the script's own";
}

} // namespace
