#include "display/ExternalDisplay.h"

#include "platform/Edid.h"

#include <gtest/gtest.h>

namespace pw {
namespace {

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

std::optional<std::string> nameOf(const std::vector<std::uint8_t>& bytes) {
    return platform::Edid::parse(bytes).name;
}

TEST(Edid, NameDescriptorRules) {
    for (std::size_t offset : {54u, 72u, 90u, 108u})
        EXPECT_EQ(nameOf(nameBlock("Slot\n", offset)), "Slot") << offset;
    EXPECT_EQ(nameOf(nameBlock("ABCDEFGHIJKLMNOP")), "ABCDEFGHIJKLM");
    EXPECT_EQ(nameOf(nameBlock("  Pad  \n")), "Pad");
    EXPECT_EQ(nameOf(nameBlock("Caf\xe9")), std::nullopt); // not ASCII

    auto spaces = nameBlock("             ", 72); // blank: the next descriptor is tried
    const auto later = nameBlock("Later", 108);
    std::copy(later.begin() + 108, later.end(), spaces.begin() + 108);
    EXPECT_EQ(nameOf(spaces), "Later");
    spaces[109] = 1; // byte 1 not zero: not a display descriptor
    EXPECT_EQ(nameOf(spaces), std::nullopt);

    auto block = nameBlock("Name");
    EXPECT_EQ(nameOf(std::vector<std::uint8_t>(block.begin(), block.end() - 1)), std::nullopt);
    block.push_back(0); // an extension byte is fine
    EXPECT_EQ(nameOf(block), "Name");
}

// Identity only from a base block that passes its checks; the name and the hash in any
// case, so a damaged monitor is still named but never taken for another.
TEST(Edid, IdentityOnlyFromAValidBaseBlock) {
    std::vector<std::uint8_t> block = nameBlock("Dell");
    const std::uint8_t header[] = {0x00, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0x00};
    std::copy(std::begin(header), std::end(header), block.begin());
    block[8] = 0x10, block[9] = 0xAC, block[10] = 0xE8, block[11] = 0xA0;
    block[12] = 0x4D, block[13] = 0x03, block[16] = 12, block[17] = 33;
    std::uint8_t sum = 0;
    for (std::size_t i = 0; i < 127; ++i)
        sum = static_cast<std::uint8_t>(sum + block[i]);
    block[127] = static_cast<std::uint8_t>(0x100 - sum);

    const auto edid = platform::Edid::parse(block);
    EXPECT_TRUE(edid.valid);
    EXPECT_EQ(edid.vendor, 0x10ACu);
    EXPECT_EQ(edid.product, 0xA0E8u);
    EXPECT_EQ(edid.serial, 0x034Du);
    EXPECT_EQ(edid.week, 12u);
    EXPECT_EQ(edid.year, 2023u);
    EXPECT_EQ(edid.name, "Dell");
    EXPECT_NE(edid.baseBlockHash, 0u);

    auto damaged = block;
    damaged[127] ^= 0xFF;
    const auto other = platform::Edid::parse(damaged);
    EXPECT_FALSE(other.valid);
    EXPECT_EQ(other.vendor, 0u);
    EXPECT_EQ(other.name, "Dell");
    EXPECT_NE(other.baseBlockHash, edid.baseBlockHash);
    EXPECT_FALSE(other.sameBaseBlock(edid));
    EXPECT_TRUE(platform::Edid::parse(block).sameBaseBlock(edid));
    EXPECT_EQ(platform::Edid::parse({}).baseBlockHash, 0u);
}

// Names end up in settings keys and menus: no control character survives, and a name
// made only of them is no name.
TEST(Edid, ControlCharactersNeverReachANameFromAnySource) {
    EXPECT_EQ(nameOf(nameBlock("Ab\x01" "c\x1b\x7f\td\n")), "Abcd");
    EXPECT_EQ(nameOf(nameBlock("\x02\x03 \x04")), std::nullopt);

    EXPECT_EQ(platform::displayNameFrom("Office\r\n27"), "Office27");
    EXPECT_EQ(platform::displayNameFrom(std::string_view(" \x1b[31mRed\x00 ", 11)), "[31mRed");
    EXPECT_EQ(platform::displayNameFrom("C1\xc2\x85 next \xc2\xa0nbsp"), "C1 next \xc2\xa0nbsp");
    EXPECT_EQ(platform::displayNameFrom("\xc3\x89" "cran"), "\xc3\x89" "cran"); // other UTF-8 untouched
    EXPECT_EQ(platform::displayNameFrom("\x01\x02"), std::nullopt);
    EXPECT_EQ(platform::displayNameFrom(""), std::nullopt);
}

} // namespace
} // namespace pw
