#include "display/ExternalDisplay.h"

#include "display/EdidName.h"

#include <gtest/gtest.h>

namespace pw {
namespace {

std::string hex(const std::vector<std::uint8_t>& bytes) {
    std::string text;
    for (auto b : bytes)
        text += "0123456789abcdef"[b >> 4], text += "0123456789abcdef"[b & 15];
    return text;
}

// A base block holding only one display descriptor of `text` at `offset`.
std::vector<std::uint8_t> nameBlock(const std::string& text, std::size_t offset = 90) {
    std::vector<std::uint8_t> edid(128, 0);
    edid[offset + 3] = 0xFC;
    for (std::size_t i = 0; i < 13; ++i)
        edid[offset + 5 + i] = static_cast<std::uint8_t>(i < text.size() ? text[i] : ' ');
    return edid;
}

TEST(ExternalDisplay, KeysTitlesAndStatuses) {
    ExternalDisplay d;
    d.id = 2, d.name = "Office 27", d.vendorID = 1234, d.productID = 5678;
    EXPECT_EQ(d.preferenceKey(), "Office 27+1234+5678@2");
    EXPECT_EQ(d.displayTitle(), "Office 27");
    d.name = "A+B@C"; // nothing is escaped
    EXPECT_EQ(d.preferenceKey(), "A+B@C+1234+5678@2");
    d.name = "", d.id = 5;
    EXPECT_EQ(d.preferenceKey(), "+1234+5678@5");
    EXPECT_EQ(d.displayTitle(), "Display 5");

    for (auto s : {DDCStatus::verified, DDCStatus::unverified, DDCStatus::softwareOnly})
        EXPECT_EQ(ddcStatusFromRaw(rawValue(s)), s);
    EXPECT_EQ(label(DDCStatus::unverified), "DDC (unverified)");
    EXPECT_EQ(ddcStatusFromRaw("Verified"), std::nullopt);
    EXPECT_EQ(ddcStatusFromRaw("DDC"), std::nullopt);

    ExternalDisplay off = d;
    off.ddcSupported = false, off.id = 9;
    const auto capable = ddcCapableDisplays({d, off, d});
    EXPECT_EQ(capable.size(), 2u);
}

TEST(EdidName, DescriptorRulesAndDamagedText) {
    for (std::size_t offset : {54u, 72u, 90u, 108u})
        EXPECT_EQ(nameFromEDID(hex(nameBlock("Slot\n", offset))), "Slot") << offset;
    EXPECT_EQ(nameFromEDID(hex(nameBlock("ABCDEFGHIJKLMNOP"))), "ABCDEFGHIJKLM");
    EXPECT_EQ(nameFromEDID(hex(nameBlock("  Pad  \n"))), "Pad");
    EXPECT_EQ(nameFromEDID(hex(nameBlock("Caf\xe9"))), std::nullopt); // not ASCII

    auto spaces = nameBlock("             ", 72); // blank: the next descriptor is tried
    const auto later = nameBlock("Later", 108);
    std::copy(later.begin() + 108, later.end(), spaces.begin() + 108);
    EXPECT_EQ(nameFromEDID(hex(spaces)), "Later");
    spaces[109] = 1; // byte 1 not zero: not a display descriptor
    EXPECT_EQ(nameFromEDID(hex(spaces)), std::nullopt);

    std::string text = hex(nameBlock("Name"));
    EXPECT_EQ(nameFromEDID(text.substr(0, 255)), std::nullopt);
    // Damage anywhere refuses the whole text: a skipped pair would shift every later byte
    // and could read a name out of another descriptor's bytes.
    EXPECT_EQ(nameFromEDID("zz" + text), std::nullopt);
    auto damaged = text;
    damaged[20] = 'g';
    EXPECT_EQ(nameFromEDID(damaged), std::nullopt);
    EXPECT_EQ(nameFromEDID(text + "0"), std::nullopt);
    EXPECT_EQ(nameFromEDID(text + "00"), "Name"); // an extension byte is fine
    for (auto& c : text)
        c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    EXPECT_EQ(nameFromEDID(text), "Name");
    EXPECT_EQ(nameFromEDID(std::string(300, 'x')), std::nullopt);
}

// Names end up in settings keys and menus: no control character survives, and a name
// made only of them is no name.
TEST(EdidName, ControlCharactersNeverReachANameFromAnySource) {
    EXPECT_EQ(nameFromEDID(hex(nameBlock("Ab\x01" "c\x1b\x7f\td\n"))), "Abcd");
    EXPECT_EQ(nameFromEDID(hex(nameBlock("\x02\x03 \x04"))), std::nullopt);

    EXPECT_EQ(displayNameFrom("Office\r\n27"), "Office27");
    EXPECT_EQ(displayNameFrom(std::string_view(" \x1b[31mRed\x00 ", 11)), "[31mRed");
    EXPECT_EQ(displayNameFrom("C1\xc2\x85 next \xc2\xa0nbsp"), "C1 next \xc2\xa0nbsp");
    EXPECT_EQ(displayNameFrom("\xc3\x89" "cran"), "\xc3\x89" "cran"); // other UTF-8 untouched
    EXPECT_EQ(displayNameFrom("\x01\x02"), std::nullopt);
    EXPECT_EQ(displayNameFrom(""), std::nullopt);
}

} // namespace
} // namespace pw
