// SPDX-License-Identifier: MIT
// One script of scanner and application, whose transcript is the same over each link and on each system.
#include <string>

#include "library/library_test.h"

namespace quillet::test {
namespace {

class AcceptanceTest : public LinkTest {
  protected:
    std::string Tell(const std::string& command) {
        m_Application.Write(command + "\n");
        return m_Application.ReadLine();
    }
    // A setting that the scanner doesn't answer: a late answer would be taken for that of the query behind it.
    std::string TellSetting(const std::string& command) {
        m_Scanner->Tell("silent on");
        m_Scanner->ClearPackets();
        const std::string result = Tell(command);
        EXPECT_TRUE(Eventually([&] {
            const auto packets = m_Scanner->Packets();
            return !packets.empty() && packets.back().opcode == 0x40;
        }));
        m_Scanner->Tell("silent off");
        return result;
    }

    ChildProcess m_Application{ACCEPTANCE, {}};
};
INSTANTIATE_TEST_SUITE_P(Links, AcceptanceTest, kAllLinks, ::testing::PrintToStringParamName());

TEST_P(AcceptanceTest, TheApplicationGetsTheSameEverywhere) {
    EXPECT_EQ(Tell("state 1"), "1");
    EXPECT_EQ(Tell("code 1"), R"(0 \x05@\x04\x00\x0b\x01\xaa)");
    EXPECT_EQ(Tell("open " + m_Connection), "0");
    EXPECT_EQ(Tell("second " + m_Connection), "102");
    EXPECT_EQ(Tell("state 3"), "3");
    EXPECT_EQ(Tell("take 0"), "112");

    m_Scanner->Scan(11, "4006381333931");
    EXPECT_EQ(Tell("take 20000"), "type 11: 0 4006381333931");
    m_Scanner->Scan(15,
                    "0109501101530003\x1D"
                    "10AB-123");
    EXPECT_EQ(Tell("take 20000"), R"(type 15: 0 0109501101530003\x1d10AB-123)");
    const std::string longText(1600, 'q');
    m_Scanner->Scan(28, longText);
    EXPECT_EQ(Tell("take 20000"), "type 28: 0 " + longText);

    EXPECT_EQ(TellSetting("code39 1"), "0");
    EXPECT_EQ(Tell("query 35"), R"(0 \x01)");
    EXPECT_EQ(TellSetting("raw 05 40 04 00 0B 00 AB"), "0");
    EXPECT_EQ(Tell("query 35"), R"(0 \x00)");
    EXPECT_EQ(Tell("version"), "0 1234567890");
    m_Scanner->Tell("refuse on");
    EXPECT_EQ(Tell("query 35"), "111");
    m_Scanner->Tell("refuse off");
    m_Scanner->Tell("silent on");
    EXPECT_EQ(Tell("query 35"), "109");
    m_Scanner->Tell("silent off");

    m_Scanner->Unplug();
    EXPECT_EQ(Tell("state 2"), "2");
    EXPECT_EQ(Tell("pattern 1"), "105");
    EXPECT_EQ(Tell("code39 1"), "0");
    m_Scanner->Plug();
    EXPECT_EQ(Tell("state 3"), "3");
    m_Scanner->Scan(8, "036000291452");
    EXPECT_EQ(Tell("take 20000"), "type 8: 0 036000291452");

    EXPECT_EQ(Tell("close"), "0");
    EXPECT_EQ(Tell("close"), "101");
    EXPECT_EQ(Tell("code39 1"), "109");
    EXPECT_EQ(Tell("state 1"), "1");
    EXPECT_EQ(m_Application.End(), 0);
}

}  // namespace
}  // namespace quillet::test
