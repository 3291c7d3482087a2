#include "platform/linux/desktop/GammaJournal.h"

#include "platform/linux/desktop/GammaChoice.h"
#include "platform/linux/desktop/CrtcRamp.h"

#include "DesktopTestSupport.h"
#include "platform/sim/MemorySystemLog.h"

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cmath>
#include <filesystem>
#include <fstream>

namespace pw::linuxdesktop {
namespace {

namespace fs = std::filesystem;

CrtcRamp rampOf(std::size_t size, double (*curve)(double), double red = 1, double green = 1,
                 double blue = 1) {
    CrtcRamp ramp;
    for (std::size_t i = 0; i < size; ++i) {
        const double v = curve(static_cast<double>(i) / static_cast<double>(size - 1));
        ramp.red.push_back(static_cast<std::uint16_t>(std::lround(v * red * 65535)));
        ramp.green.push_back(static_cast<std::uint16_t>(std::lround(v * green * 65535)));
        ramp.blue.push_back(static_cast<std::uint16_t>(std::lround(v * blue * 65535)));
    }
    return ramp;
}
double linear(double v) { return v; }
double curved(double v) { return std::pow(v, 2.2); }

// What the program installs to dim: the ramp as read, scaled, stretched back over the
// CRTC's length.
CrtcRamp dimmedThroughTheProgram(const CrtcRamp& original, float factor) {
    auto ramp = toGammaRamp(original);
    for (auto* channel : {&ramp.red, &ramp.green, &ramp.blue})
        for (auto& sample : *channel) sample *= factor;
    return stretchRamp(ramp, original.size());
}

TEST(GammaJournalText, RecordsSurviveTheFileAndDamageIsNamedByLine) {
    const std::vector<DimmedRamp> ramps{{"x11", "edid:00112233aabbccdd", rampOf(4, linear)},
                                        {"gnome", "display:7", rampOf(1024, curved)}};
    std::string whyNot;
    const auto text = formatDimmedRamps(ramps);
    const auto back = parseDimmedRamps(text, whyNot);
    ASSERT_TRUE(back) << whyNot;
    ASSERT_EQ(back->size(), 2u);
    EXPECT_EQ((*back)[0].displayKey, "edid:00112233aabbccdd");
    EXPECT_EQ((*back)[1].backend, "gnome");
    EXPECT_EQ((*back)[1].original.blue, ramps[1].original.blue);
    EXPECT_TRUE(parseDimmedRamps("panelwright dimmed gamma 1\n", whyNot)->empty());

    const std::string header = "panelwright dimmed gamma 1\n";
    const std::vector<std::pair<std::string, std::string>> damaged{
        {"", "line 1"},
        {"panelwright dimmed gamma 2\n", "line 1"},
        {header + "x11 edid:1 2\n00000001\n00000001\n", "line 2: the record ends"},
        {header + "x11 edid:1 2\n0000ffff\n0000fff\n0000ffff\n", "line 4: expected 2 samples"},
        {header + "x11 edid:1 2\n0000ffff\n0000ffff\n0000fffg\n", "line 5"},
        {header + "x11 edid:1 0\n", "line 2"},
        {header + "x11 edid:1 99999999999999999999\n", "line 2"},
        {header + "x11 Edid/../x 1\n0000\n0000\n0000\n", "line 2"},
        {header + "x11 edid:1\n", "line 2"},
        {header + "x11 edid:1 1\n+000\n0000\n0000\n", "line 3"},
    };
    for (const auto& [text, where] : damaged) {
        whyNot.clear();
        EXPECT_FALSE(parseDimmedRamps(text, whyNot)) << text;
        EXPECT_TRUE(whyNot.starts_with(where)) << text << " -> " << whyNot;
    }
}

TEST(GammaJournalText, OnlyARampWeDimmedCountsAsLeftDimmed) {
    for (const auto curve : {linear, curved}) {
        for (const std::size_t size : {256u, 1024u, 4096u}) {
            const auto original = rampOf(size, curve);
            EXPECT_TRUE(looksDimmedFrom(dimmedThroughTheProgram(original, 0.3f), original)) << size;
            EXPECT_TRUE(looksDimmedFrom(dimmedThroughTheProgram(original, 0.95f), original)) << size;
            // Given back already, or never dimmed.
            EXPECT_FALSE(looksDimmedFrom(original, original));
            EXPECT_FALSE(looksDimmedFrom(dimmedThroughTheProgram(original, 1.0f), original));
            // A night light warms the picture: blue down far more than red.
            EXPECT_FALSE(looksDimmedFrom(rampOf(size, curve, 1.0, 0.8, 0.55), original));
            // Another curve altogether, even if darker.
            EXPECT_FALSE(looksDimmedFrom(rampOf(size, curve == linear ? curved : linear, 0.5, 0.5, 0.5),
                                         original));
        }
    }
    EXPECT_FALSE(looksDimmedFrom(rampOf(256, linear, 0.5, 0.5, 0.5), rampOf(1024, linear)));
    EXPECT_FALSE(looksDimmedFrom(CrtcRamp{}, CrtcRamp{}));
}

TEST(GammaJournalText, DisplaysAreKnownByTheirBaseEdidBlock) {
    auto edid = test::fakeEdid(1);
    const auto key = displayKey(3, &edid);
    EXPECT_TRUE(key.starts_with("edid:"));
    edid.resize(256, 0x55); // an extension block does not change the monitor
    EXPECT_EQ(displayKey(9, &edid), key);
    const auto other = test::fakeEdid(2);
    EXPECT_NE(displayKey(3, &other), key);
    EXPECT_EQ(displayKey(3, nullptr), "display:3");
    const std::vector<std::uint8_t> shortBlock(20, 1);
    EXPECT_EQ(displayKey(3, &shortBlock), "display:3");
}

class TemporaryFolder {
public:
    TemporaryFolder() {
        std::string pattern = (fs::temp_directory_path() / "pw-journal-XXXXXX").string();
        path_ = ::mkdtemp(pattern.data());
    }
    ~TemporaryFolder() { fs::remove_all(path_); }
    const fs::path& path() const { return path_; }

private:
    fs::path path_;
};

TEST(GammaJournalFile, KeepsOneRecordPerMonitorAndGoesWhenEmpty) {
    TemporaryFolder folder;
    GammaJournal journal(folder.path() / "state" / "dimmed-gamma");
    std::string whyNot;
    EXPECT_TRUE(journal.read(whyNot).empty());
    EXPECT_TRUE(whyNot.empty());

    ASSERT_TRUE(journal.keep({"x11", "edid:1", rampOf(8, linear)}, whyNot)) << whyNot;
    ASSERT_TRUE(journal.keep({"x11", "edid:1", rampOf(8, curved)}, whyNot));
    ASSERT_TRUE(journal.keep({"gnome", "edid:1", rampOf(8, linear)}, whyNot));
    auto records = journal.read(whyNot);
    ASSERT_EQ(records.size(), 2u);
    EXPECT_EQ(records[0].backend, "x11");
    EXPECT_EQ(records[0].original.red, rampOf(8, curved).red);

    journal.forget("x11");
    EXPECT_EQ(journal.read(whyNot).size(), 1u);
    journal.forget("gnome");
    EXPECT_FALSE(fs::exists(journal.file()));
    EXPECT_EQ(std::distance(fs::directory_iterator(journal.file().parent_path()),
                            fs::directory_iterator()),
              0); // no temporary files left behind

    std::ofstream(journal.file()) << "panelwright dimmed gamma 1\nx11 edid:1 3\n";
    EXPECT_TRUE(journal.read(whyNot).empty());
    EXPECT_EQ(whyNot, journal.file().string() + ": line 2: the record ends before its three channels");
}

// A server whose one CRTC a "previous run" left dimmed: a child process dims it and ends
// without giving it back, as a killed program would.
class LeftDimmedTest : public ::testing::Test {
protected:
    static constexpr platform::DisplayID kDisplay = 5;

    void SetUp() override {
        server = test::VirtualXServer::start();
        if (!server) GTEST_SKIP() << "Xvfb could not be started";
        probe.emplace(server->name());
        install(rampOf(256, curved));
        journal = std::make_shared<GammaJournal>(folder.path() / "dimmed-gamma");
        log = std::make_shared<sim::MemorySystemLog>();
    }

    DisplaySource source() const {
        return DisplaySource{[] { return std::vector<platform::DisplayID>{kDisplay}; },
                             [](platform::DisplayID) -> std::optional<std::vector<std::uint8_t>> {
                                 return test::fakeEdid(4);
                             },
                             nullptr};
    }
    std::shared_ptr<platform::GammaTables> choose() {
        return chooseGamma(SessionFacts{"x11", false, server->name()}, noBus, source(),
                           DesktopLog{log}, journal);
    }

    void dimInAChildThatDies(float factor) {
        const pid_t child = ::fork();
        if (child == 0) {
            auto tables = choose();
            auto ramp = tables ? tables->read(kDisplay) : std::nullopt;
            if (ramp)
                for (auto* channel : {&ramp->red, &ramp->green, &ramp->blue})
                    for (auto& sample : *channel) sample *= factor;
            const bool ok = ramp && tables->apply(kDisplay, *ramp);
            ::_exit(ok ? 0 : 1); // no destructor runs: nothing is given back
        }
        int status = 0;
        ASSERT_EQ(::waitpid(child, &status, 0), child);
        ASSERT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
    }

    void install(const CrtcRamp& ramp) { probe->install(ramp.red, ramp.green, ramp.blue); }
    std::vector<unsigned short> shownBlue() { return probe->channel(2); }
    std::vector<std::string> repairLines() {
        auto lines = log->messages("Display");
        std::erase_if(lines, [](const std::string& line) { return line.starts_with("Dimming"); });
        return lines;
    }

    const std::optional<std::string> noBus = std::string("unix:path=/nonexistent/bus");
    TemporaryFolder folder;
    std::optional<test::VirtualXServer> server;
    std::optional<test::RampProbe> probe;
    std::shared_ptr<GammaJournal> journal;
    std::shared_ptr<sim::MemorySystemLog> log;
};

TEST_F(LeftDimmedTest, TheNextStartGivesTheRampBackOnce) {
    dimInAChildThatDies(0.4f);
    EXPECT_NEAR(shownBlue()[255], 0.4 * 65535, 2);
    EXPECT_TRUE(fs::exists(journal->file()));

    auto tables = choose();
    ASSERT_TRUE(tables);
    EXPECT_EQ(shownBlue(), rampOf(256, curved).blue);
    EXPECT_FALSE(fs::exists(journal->file()));
    EXPECT_EQ(repairLines(), (std::vector<std::string>{
                                 "Display 5 was left dimmed when the program last ended; its "
                                 "gamma ramp is given back"}));

    // A clean end leaves nothing to repair.
    std::vector<float> half(256, 0.25f);
    ASSERT_TRUE(tables->apply(kDisplay, platform::GammaRamp{half, half, half}));
    EXPECT_TRUE(fs::exists(journal->file()));
    tables.reset();
    EXPECT_FALSE(fs::exists(journal->file()));
    EXPECT_EQ(shownBlue(), rampOf(256, curved).blue);
}

TEST_F(LeftDimmedTest, ARampSetSinceByAnotherProgramIsLeftAlone) {
    dimInAChildThatDies(0.4f);
    const auto nightLight = rampOf(256, curved, 1.0, 0.85, 0.6);
    install(nightLight);

    ASSERT_TRUE(choose());
    EXPECT_EQ(shownBlue(), nightLight.blue);
    EXPECT_FALSE(fs::exists(journal->file()));
    EXPECT_EQ(repairLines(), (std::vector<std::string>{
                                 "Display 5 was dimmed when the program last ended, but its gamma "
                                 "has been set since; leaving it as it is"}));
}

TEST_F(LeftDimmedTest, ADamagedRecordIsNamedAndDropped) {
    std::ofstream(journal->file()) << "panelwright dimmed gamma 1\nx11 edid:1 1\nzzzz\n";
    ASSERT_TRUE(choose());
    EXPECT_FALSE(fs::exists(journal->file()));
    EXPECT_EQ(repairLines(),
              (std::vector<std::string>{"Ignoring the record of dimmed displays: " +
                                        journal->file().string() +
                                        ": line 2: the record ends before its three channels"}));
}

} // namespace
} // namespace pw::linuxdesktop
