// The real panelwright binary as a person runs it: on a simulated machine, in a private
// home, offscreen for pictures, and under a private X server and session bus for the
// pointer. These tests wait on real processes, so they poll with deadlines; what they
// assert about time is ordering and "about", never the machine's speed.

#include "common/TestSupport.h"

#include <gtest/gtest.h>

#include <QByteArray>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QImage>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QMap>
#include <QPoint>
#include <QProcess>
#include <QStandardPaths>
#include <QStringList>
#include <QThread>

#include <chrono>
#include <optional>

namespace pw::test {
namespace {

const QString kApp = QStringLiteral(PW_APP_PATH);

double nowMs() {
    using Ms = std::chrono::duration<double, std::milli>;
    return Ms(std::chrono::system_clock::now().time_since_epoch()).count();
}

QString scenario(const char* name) {
    return QString::fromStdString(sourcePath(std::string("scenarios/") + name).string());
}

// A home of its own for every run: log, settings, saved monitor values, the socket.
struct PrivateHome {
    TempDir dir;
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    PrivateHome() {
        const QString home = QString::fromStdString(dir.path().string());
        QDir(home).mkpath(QStringLiteral("run"));
        QFile::setPermissions(home + "/run", QFileDevice::ReadOwner | QFileDevice::WriteOwner |
                                                 QFileDevice::ExeOwner);
        env.insert(QStringLiteral("HOME"), home);
        env.insert(QStringLiteral("XDG_STATE_HOME"), home + "/state");
        env.insert(QStringLiteral("XDG_CONFIG_HOME"), home + "/config");
        env.insert(QStringLiteral("XDG_RUNTIME_DIR"), home + "/run");
        env.remove(QStringLiteral("DISPLAY"));
        env.remove(QStringLiteral("WAYLAND_DISPLAY"));
        env.remove(QStringLiteral("DBUS_SESSION_BUS_ADDRESS"));
        env.remove(QStringLiteral("QT_QUICK_BACKEND"));
    }
    QString path(const QString& name) const {
        return QString::fromStdString(dir.path().string()) + u'/' + name;
    }
    QString log() const { return path(QStringLiteral("state/panelwright/Panelwright.log")); }
};

struct Outcome {
    int status = -1;
    QString out, err;
};

Outcome launch(const PrivateHome& home, const QStringList& args, int timeoutMs = 60000) {
    QProcess p;
    p.setProcessEnvironment(home.env);
    p.start(kApp, args);
    Outcome r;
    if (!p.waitForFinished(timeoutMs)) {
        p.kill();
        p.waitForFinished();
        return r;
    }
    r.status = p.exitStatus() == QProcess::NormalExit ? p.exitCode() : -1;
    r.out = QString::fromLocal8Bit(p.readAllStandardOutput());
    r.err = QString::fromLocal8Bit(p.readAllStandardError());
    return r;
}

QStringList messagesOf(const QString& file, const QString& category) {
    QFile f(file);
    QStringList lines;
    if (!f.open(QIODevice::ReadOnly | QIODevice::Text)) return lines;
    const QString tag = u'[' + category + QStringLiteral("] ");
    for (const QString& line : QString::fromUtf8(f.readAll()).split(u'\n')) {
        const auto at = line.indexOf(tag);
        if (at >= 0) lines << line.mid(at + tag.size());
    }
    return lines;
}

TEST(AppBinaryTest, LaunchWritesTheSequenceInOrderAndThePopoverPicture) {
    PrivateHome home;
    const QString png = home.path(QStringLiteral("popover.png"));
    const Outcome r = launch(home, {QStringLiteral("--simulate"), scenario("two-monitors-and-builtin.json"),
                             QStringLiteral("--screenshot"), QStringLiteral("popover"), png});
    ASSERT_EQ(r.status, 0) << r.err.toStdString();
    EXPECT_EQ(r.out.trimmed(), png);
    const QImage picture(png);
    // The panel, 360 wide, rounded in a 16-point shadow margin that keeps its transparency.
    EXPECT_EQ(picture.width(), 360 + 2 * 16);
    EXPECT_GT(picture.height(), 300); // two sections and the footer
    EXPECT_EQ(qAlpha(picture.pixel(0, 0)), 0);
    EXPECT_EQ(qAlpha(picture.pixel(picture.width() / 2, picture.height() / 2)), 255);

    const QStringList app = messagesOf(home.log(), QStringLiteral("App"));
    const QStringList expected = {
        "applicationDidFinishLaunching", "Setting up status bar...", "Status bar ready",
        "Enumerating displays...", "Display enumeration complete",
        "Starting display monitoring...", "Display monitoring started",
        "Starting keyboard manager...", "Keyboard manager started", "Startup complete"};
    EXPECT_EQ(app.mid(0, expected.size()), expected);

    // The display manager's own lines sit inside its stage, after the seven-line banner.
    QFile f(home.log());
    ASSERT_TRUE(f.open(QIODevice::ReadOnly));
    const QStringList all = QString::fromUtf8(f.readAll()).split(u'\n');
    EXPECT_TRUE(all.value(7).endsWith(QStringLiteral("[App] applicationDidFinishLaunching")));
    qsizetype enumerating = -1, complete = -1, firstDisplayLine = -1;
    for (qsizetype i = 0; i < all.size(); ++i) {
        if (all[i].endsWith(QStringLiteral("Enumerating displays..."))) enumerating = i;
        if (all[i].endsWith(QStringLiteral("Display enumeration complete"))) complete = i;
        if (firstDisplayLine < 0 && all[i].contains(QStringLiteral("[Display]")))
            firstDisplayLine = i;
    }
    EXPECT_LT(enumerating, firstDisplayLine);
    EXPECT_LT(firstDisplayLine, complete);
}

TEST(AppBinaryTest, TheIndicatorPictureAndBadInputThatOpensNoWindow) {
    PrivateHome home;
    const QString png = home.path(QStringLiteral("indicator.png"));
    Outcome r = launch(home, {QStringLiteral("--simulate"), scenario("one-monitor.json"),
                       QStringLiteral("--screenshot"), QStringLiteral("indicator"), png});
    ASSERT_EQ(r.status, 0) << r.err.toStdString();
    EXPECT_EQ(QImage(png).size(), QSize(200, 70));

    // A malformed scenario: one line naming the file and the JSON path, status 2.
    const QString bad = home.path(QStringLiteral("bad.json"));
    QFile f(bad);
    ASSERT_TRUE(f.open(QIODevice::WriteOnly));
    f.write(R"({"displays": [{"id": "two"}]})");
    f.close();
    r = launch(home, {QStringLiteral("--simulate"), bad, QStringLiteral("--screenshot"),
                   QStringLiteral("popover"), home.path(QStringLiteral("never.png"))});
    EXPECT_EQ(r.status, 2);
    EXPECT_EQ(r.err.trimmed().count(u'\n'), 0) << r.err.toStdString();
    EXPECT_TRUE(r.err.contains(bad)) << r.err.toStdString();
    EXPECT_TRUE(r.err.contains(QStringLiteral("displays[0]"))) << r.err.toStdString();
    EXPECT_FALSE(QFile::exists(home.path(QStringLiteral("never.png"))));

    r = launch(home, {QStringLiteral("--screenshot"), QStringLiteral("preferences"), png});
    EXPECT_EQ(r.status, 2);
}

TEST(AppBinaryTest, TheWindowsPicturesHaveTheirFixedSizes) {
    PrivateHome home;
    const std::pair<const char*, QSize> kinds[] = {
        {"settings", {480, 400}}, {"settings-displays", {480, 400}}, {"about", {340, 320}}};
    for (const auto& [kind, size] : kinds) {
        const QString png = home.path(QLatin1String(kind) + QStringLiteral(".png"));
        const Outcome r = launch(home, {QStringLiteral("--simulate"), scenario("one-monitor.json"),
                                 QStringLiteral("--screenshot"), QLatin1String(kind), png});
        ASSERT_EQ(r.status, 0) << kind << ": " << r.err.toStdString();
        EXPECT_EQ(QImage(png).size(), size) << kind;
    }
}

// At scale 2 every picture is exactly twice the 1x one: symbols are sized in points, so
// nothing in a layout grows with the screen's pixel density.
TEST(AppBinaryTest, At2xEveryPictureIsTwiceThe1xOne) {
    PrivateHome home;
    for (const char* kind : {"popover", "settings-displays", "about", "indicator"}) {
        QSize sizes[2];
        for (int scale : {1, 2}) {
            home.env.insert(QStringLiteral("QT_SCALE_FACTOR"), QString::number(scale));
            const QString png = home.path(QStringLiteral("%1-%2.png").arg(QLatin1String(kind)).arg(scale));
            const Outcome r = launch(home, {QStringLiteral("--simulate"),
                                            scenario("two-monitors-and-builtin.json"),
                                            QStringLiteral("--screenshot"), QLatin1String(kind), png});
            ASSERT_EQ(r.status, 0) << kind << ": " << r.err.toStdString();
            sizes[scale - 1] = QImage(png).size();
        }
        EXPECT_EQ(sizes[1], sizes[0] * 2) << kind;
    }
}

TEST(AppBinaryTest, HelpNeedsNoDisplayAndShowsThePictureAsOptional) {
    PrivateHome home;
    home.env.remove(QStringLiteral("QT_QPA_PLATFORM"));
    const Outcome r = launch(home, {QStringLiteral("--help")});
    EXPECT_EQ(r.status, 0) << r.err.toStdString();
    EXPECT_TRUE(r.out.contains(QStringLiteral("[options] [OUT.png]"))) << r.out.toStdString();
}

// --- Under a private X server ---------------------------------------------------------

// Starts a program that prints one line when it is ready (Xvfb's display number,
// dbus-daemon's address) and stops it at the end.
class Daemon {
public:
    Daemon(const QString& program, const QStringList& args) {
        process_.start(program, args);
        QElapsedTimer waited;
        waited.start();
        while (!line_ && waited.elapsed() < 20000 && process_.state() != QProcess::NotRunning) {
            process_.waitForReadyRead(200);
            buffer_ += process_.readAllStandardOutput();
            if (const auto nl = buffer_.indexOf('\n'); nl >= 0)
                line_ = QString::fromUtf8(buffer_.left(nl)).trimmed();
        }
    }
    ~Daemon() {
        process_.terminate();
        if (!process_.waitForFinished(5000)) process_.kill();
        process_.waitForFinished();
    }
    const std::optional<QString>& line() const { return line_; }

private:
    QProcess process_;
    QByteArray buffer_;
    std::optional<QString> line_;
};

struct Item {
    QString path;
    int x = 0, y = 0, w = 0, h = 0;
    QString text;
    QPoint centre() const { return {x + w / 2, y + h / 2}; }
};

std::vector<Item> readItems(const QString& file) {
    std::vector<Item> items;
    QFile f(file);
    if (!f.open(QIODevice::ReadOnly | QIODevice::Text)) return items;
    for (const QString& line : QString::fromUtf8(f.readAll()).split(u'\n')) {
        const QStringList c = line.split(u'\t');
        if (c.size() < 5) continue;
        items.push_back({c[0], c[1].toInt(), c[2].toInt(), c[3].toInt(), c[4].toInt(), c.value(5)});
    }
    return items;
}

std::optional<Item> findItem(const std::vector<Item>& items, const QString& pathPart,
                             const QString& text = {}) {
    for (const auto& item : items)
        if (item.path.contains(pathPart) && (text.isEmpty() || item.text == text)) return item;
    return std::nullopt;
}

// DDC Set VCP writes the simulated machine's bus received, from the --bus-log file.
struct SetWrite {
    double atMs;
    QString endpoint;
    int code;
    int value;
};

std::vector<SetWrite> setWrites(const QString& busLog) {
    std::vector<SetWrite> writes;
    QFile f(busLog);
    if (!f.open(QIODevice::ReadOnly | QIODevice::Text)) return writes;
    for (const QString& line : QString::fromUtf8(f.readAll()).split(u'\n')) {
        const QStringList c = line.split(u'\t');
        if (c.size() < 7 || c[1] != u"write") continue;
        const QStringList bytes = c[6].split(u' ');
        if (bytes.size() != 6 || bytes[0] != u"84" || bytes[1] != u"03") continue;
        writes.push_back({c[0].toDouble(), c[2], bytes[2].toInt(nullptr, 16),
                          bytes[3].toInt(nullptr, 16) << 8 | bytes[4].toInt(nullptr, 16)});
    }
    return writes;
}

std::vector<SetWrite> only(const std::vector<SetWrite>& writes, const QString& endpoint, int code) {
    std::vector<SetWrite> out;
    for (const auto& w : writes)
        if (w.endpoint == endpoint && w.code == code) out.push_back(w);
    return out;
}

template <typename Done> bool waitFor(Done done, int timeoutMs) {
    QElapsedTimer waited;
    waited.start();
    while (!done()) {
        if (waited.elapsed() > timeoutMs) return false;
        QThread::msleep(20);
    }
    return true;
}

class DesktopTest : public ::testing::Test {
protected:
    void SetUp() override {
        xvfb_ = QStandardPaths::findExecutable(QStringLiteral("Xvfb"));
        xdotool_ = QStandardPaths::findExecutable(QStringLiteral("xdotool"));
        const QString dbus = QStandardPaths::findExecutable(QStringLiteral("dbus-daemon"));
        if (xvfb_.isEmpty() || xdotool_.isEmpty() || dbus.isEmpty())
            GTEST_SKIP() << "needs Xvfb, xdotool and dbus-daemon (scripts/setup.sh installs them)";
        x_ = std::make_unique<Daemon>(xvfb_, QStringList{"-displayfd", "1", "-screen", "0",
                                                         "1280x800x24", "-nolisten", "tcp"});
        ASSERT_TRUE(x_->line()) << "Xvfb did not start";
        bus_ = std::make_unique<Daemon>(
            dbus, QStringList{"--session", "--nofork", "--print-address=1"});
        ASSERT_TRUE(bus_->line()) << "dbus-daemon did not start";
        home_.env.insert(QStringLiteral("DISPLAY"), u':' + *x_->line());
        home_.env.insert(QStringLiteral("DBUS_SESSION_BUS_ADDRESS"), *bus_->line());
        home_.env.insert(QStringLiteral("QT_QPA_PLATFORM"), QStringLiteral("xcb"));
        home_.env.insert(QStringLiteral("XDG_SESSION_TYPE"), QStringLiteral("x11"));
        home_.env.insert(QStringLiteral("PANELWRIGHT_ITEM_MAP"), itemMap());
    }
    void TearDown() override {
        if (app_.state() != QProcess::NotRunning) {
            app_.kill();
            app_.waitForFinished();
        }
        bus_.reset();
        x_.reset();
    }

    QString itemMap() const { return home_.path(QStringLiteral("items.tsv")); }
    QString busLog() const { return home_.path(QStringLiteral("bus.tsv")); }
    // The bus log stops growing: the opening's refresh reads are over, so what follows in
    // the log is what the person does.
    bool busQuiet() {
        return waitFor(
            [&] {
                const auto size = QFile(busLog()).size();
                QThread::msleep(400);
                return QFile(busLog()).size() == size;
            },
            20000);
    }

    void startApp(const char* scenarioName) {
        app_.setProcessEnvironment(home_.env);
        app_.start(kApp, {QStringLiteral("--simulate"), scenario(scenarioName),
                          QStringLiteral("--bus-log"), busLog()});
        ASSERT_TRUE(app_.waitForStarted());
    }

    // Runs xdotool with one chain of commands; true when it succeeded.
    bool xdotool(const QStringList& args) {
        QProcess p;
        p.setProcessEnvironment(home_.env);
        p.start(xdotool_, args);
        return p.waitForFinished(20000) && p.exitCode() == 0;
    }
    // What xdotool printed, one entry a line.
    QStringList xdotoolOutput(const QStringList& args) {
        QProcess p;
        p.setProcessEnvironment(home_.env);
        p.start(xdotool_, args);
        p.waitForFinished(20000);
        return QString::fromUtf8(p.readAllStandardOutput()).split(u'\n', Qt::SkipEmptyParts);
    }
    bool popoverVisible() {
        QProcess p;
        p.setProcessEnvironment(home_.env);
        p.start(xdotool_, {"search", "--onlyvisible", "--name", "^Panelwright$"});
        p.waitForFinished(20000);
        return !p.readAllStandardOutput().trimmed().isEmpty();
    }

    PrivateHome home_;
    QString xvfb_, xdotool_;
    std::unique_ptr<Daemon> x_, bus_;
    QProcess app_;
};

TEST_F(DesktopTest, ADragWritesOnceAfterItEndsAndAnInputIsWrittenAtOnce) {
    startApp("two-monitors-and-builtin.json");
    // No tray host on a bare X server: the popover opens at start and says where its
    // controls are.
    ASSERT_TRUE(waitFor([&] { return findItem(readItems(itemMap()), "section#1").has_value(); },
                        60000))
        << app_.readAllStandardError().toStdString();
    // Let the opening's refresh reads end, so the log holds only what the pointer does.
    ASSERT_TRUE(busQuiet());
    const auto items = readItems(itemMap());
    const auto track = findItem(items, QStringLiteral("section#0/brightnessSlider#0/track"));
    const auto hdmi2 = findItem(items, QStringLiteral("section#0/inputSelector"),
                                QStringLiteral("HDMI 2"));
    ASSERT_TRUE(track && hdmi2);
    const auto before = setWrites(busLog()).size();

    // A drag along the track and past its right end. The moves go out back to back: a
    // pause of 100 ms inside a drag is a write by design, and a busy machine could make
    // one out of paced moves.
    const int y = track->centre().y();
    QStringList drag = {"mousemove", QString::number(track->x + track->w / 3), QString::number(y),
                        "mousedown", "1"};
    for (int step = 1; step <= 12; ++step)
        drag << "mousemove"
             << QString::number(track->x + track->w / 3 + step * (track->w / 12 + 8))
             << QString::number(y);
    drag << "mouseup" << "1";
    ASSERT_TRUE(xdotool(drag));
    const double dragEnded = nowMs();

    ASSERT_TRUE(waitFor([&] { return !only(setWrites(busLog()), "display 2", 0x10).empty(); },
                        10000));
    QThread::msleep(500); // nothing more may follow
    const auto brightness = only(setWrites(busLog()), QStringLiteral("display 2"), 0x10);
    ASSERT_EQ(brightness.size(), 1u) << "second write " << brightness[1].atMs - dragEnded
                                     << " ms after the drag, value " << brightness[1].value;
    EXPECT_EQ(brightness[0].value, 100); // pinned at the end of the track: full brightness
    const double afterDrag = brightness[0].atMs - dragEnded;
    EXPECT_GT(afterDrag, -60) << "written before the drag ended";
    EXPECT_LT(afterDrag, 1000);
    std::printf("brightness write %.1f ms after the drag ended\n", afterDrag);
    EXPECT_EQ(setWrites(busLog()).size(), before + 1); // nothing else was written

    const double clicked = nowMs();
    ASSERT_TRUE(xdotool({"mousemove", QString::number(hdmi2->centre().x()),
                         QString::number(hdmi2->centre().y()), "click", "1"}));
    ASSERT_TRUE(waitFor([&] { return !only(setWrites(busLog()), "display 2", 0x60).empty(); },
                        10000));
    const auto input = only(setWrites(busLog()), QStringLiteral("display 2"), 0x60);
    ASSERT_EQ(input.size(), 1u);
    EXPECT_EQ(input[0].value, 0x12); // HDMI 2
    std::printf("input write %.1f ms after the click was sent\n", input[0].atMs - clicked);

    // Escape closes the popover; starting the program again opens it and exits 0.
    ASSERT_TRUE(xdotool({"key", "Escape"}));
    ASSERT_TRUE(waitFor([&] { return !popoverVisible(); }, 10000));
    QProcess second;
    second.setProcessEnvironment(home_.env);
    second.start(kApp, {QStringLiteral("--simulate"), scenario("two-monitors-and-builtin.json")});
    ASSERT_TRUE(second.waitForFinished(20000));
    EXPECT_EQ(second.exitCode(), 0);
    EXPECT_TRUE(waitFor([&] { return popoverVisible(); }, 10000));

    // SIGTERM runs the shutdown sequence: no DDC traffic on the way out.
    ASSERT_TRUE(busQuiet());
    const auto transfers = QFile(busLog()).size();
    app_.terminate();
    ASSERT_TRUE(app_.waitForFinished(20000));
    EXPECT_EQ(app_.exitStatus(), QProcess::NormalExit);
    EXPECT_EQ(app_.exitCode(), 0);
    EXPECT_EQ(QFile(busLog()).size(), transfers);

    // The simulated monitors keep what they were set to for the next run.
    const QStringList saved =
        QDir(home_.path(QStringLiteral("state/panelwright/simulated"))).entryList({"*.json"});
    ASSERT_EQ(saved.size(), 1);
    QFile state(home_.path(QStringLiteral("state/panelwright/simulated/")) + saved[0]);
    ASSERT_TRUE(state.open(QIODevice::ReadOnly));
    const QJsonObject monitor =
        QJsonDocument::fromJson(state.readAll())["displays"].toObject()["2"].toObject();
    EXPECT_EQ(monitor["16"].toArray().at(0).toInt(), 100);
    EXPECT_EQ(monitor["96"].toArray().at(0).toInt(), 0x12);
}

// Someone who uses no pointer: Tab to the first brightness slider, three arrow presses in
// a burst (one write, of the value the third press reached), Tab on to the mute button,
// Space, and Escape to close.
TEST_F(DesktopTest, KeysAloneReachASliderTheMuteButtonAndClose) {
    startApp("two-monitors-and-builtin.json");
    ASSERT_TRUE(waitFor([&] { return findItem(readItems(itemMap()), "section#1").has_value(); },
                        60000))
        << app_.readAllStandardError().toStdString();
    ASSERT_TRUE(busQuiet());
    const auto before = setWrites(busLog()).size();

    // The LG reads 45 of 100: slider 72.65; three steps of 1 reach 76, which is 50.
    ASSERT_TRUE(xdotool({"key", "Tab", "Right", "Right", "Right"}));
    ASSERT_TRUE(waitFor([&] { return !only(setWrites(busLog()), "display 2", 0x10).empty(); },
                        10000));
    QThread::msleep(500); // nothing more may follow
    const auto brightness = only(setWrites(busLog()), QStringLiteral("display 2"), 0x10);
    ASSERT_EQ(brightness.size(), 1u);
    EXPECT_EQ(brightness[0].value, 50);

    ASSERT_TRUE(xdotool({"key", "Tab", "Tab", "space"}));
    ASSERT_TRUE(waitFor([&] { return !only(setWrites(busLog()), "display 2", 0x8D).empty(); },
                        10000));
    EXPECT_EQ(only(setWrites(busLog()), QStringLiteral("display 2"), 0x8D)[0].value, 1); // muted
    EXPECT_EQ(setWrites(busLog()).size(), before + 2);

    ASSERT_TRUE(xdotool({"key", "Escape"}));
    EXPECT_TRUE(waitFor([&] { return !popoverVisible(); }, 10000));
}

// The level indicator is a window of the app's own on a desktop without one: the app must
// let it go before the Qt application, or quitting crashes.
TEST_F(DesktopTest, AKeyStepsTheMonitorAndTheAppStillQuitsCleanly) {
    // Under the address sanitizer the app's own leaks count here too (Qt Quick's image
    // cache aside): the Core leaves nothing behind.
    home_.env.insert(QStringLiteral("ASAN_OPTIONS"),
                     QStringLiteral("detect_leaks=1:fast_unwind_on_malloc=0"));
    home_.env.insert(QStringLiteral("LSAN_OPTIONS"),
                     QStringLiteral("print_suppressions=0:suppressions=") +
                         QString::fromStdString(sourcePath("tests/ui/app/lsan.supp").string()));
    startApp("two-monitors-and-builtin.json");
    ASSERT_TRUE(waitFor([&] { return findItem(readItems(itemMap()), "section#1").has_value(); },
                        60000))
        << app_.readAllStandardError().toStdString();
    ASSERT_TRUE(xdotool({"key", "Escape"})); // the key goes to the desktop, not the popover
    ASSERT_TRUE(waitFor([&] { return !popoverVisible(); }, 10000));
    const auto before = setWrites(busLog()).size();
    ASSERT_TRUE(xdotool({"key", "XF86MonBrightnessUp"}));
    ASSERT_TRUE(waitFor([&] { return setWrites(busLog()).size() > before; }, 10000))
        << "the key stepped no monitor";
    const auto written = setWrites(busLog()).back();
    EXPECT_EQ(written.code, 0x10);
    ASSERT_TRUE(waitFor(
        [&] {
            QProcess p; // the popover is closed: the app's one visible window is the indicator
            p.setProcessEnvironment(home_.env);
            p.start(xdotool_, {"search", "--onlyvisible", "--pid", QString::number(app_.processId())});
            p.waitForFinished(20000);
            return !p.readAllStandardOutput().trimmed().isEmpty();
        },
        10000))
        << "no indicator shown";

    // SIGTERM: the Core lets every manager go and joins every worker before the window
    // engine and the application go; no sanitizer has anything to say about it.
    app_.terminate();
    ASSERT_TRUE(app_.waitForFinished(20000));
    const QString errors = QString::fromUtf8(app_.readAllStandardError());
    EXPECT_EQ(app_.exitStatus(), QProcess::NormalExit) << errors.toStdString();
    EXPECT_EQ(app_.exitCode(), 0) << errors.toStdString();
    EXPECT_FALSE(errors.contains(QStringLiteral("Sanitizer")) ||
                 errors.contains(QStringLiteral("runtime error:")))
        << errors.toStdString();
}

// Under a real window manager and XEmbed tray host: the item sits in the tray, pointing at
// it shows the tooltip, and a click on it opens the popover (no popover opens by itself).
TEST_F(DesktopTest, InARealTrayTheItemShowsItsTooltipAndAClickOpensThePopover) {
    const QString openbox = QStandardPaths::findExecutable(QStringLiteral("openbox"));
    const QString trayer = QStandardPaths::findExecutable(QStringLiteral("trayer"));
    if (openbox.isEmpty() || trayer.isEmpty())
        GTEST_SKIP() << "needs openbox and trayer (scripts/setup.sh installs them)";
    // Stopped by their destructors at the end of the test, after the app.
    struct Helper {
        QProcess process;
        ~Helper() {
            process.terminate();
            if (!process.waitForFinished(5000)) process.kill();
            process.waitForFinished();
        }
    } windowManager, tray;
    for (Helper* h : {&windowManager, &tray}) h->process.setProcessEnvironment(home_.env);
    windowManager.process.start(openbox, {});
    // trayer started while the window manager is still taking over the screen now and then
    // ends, or never shows its panel: it starts once openbox has put up its own check window.
    const QString xprop = QStandardPaths::findExecutable(QStringLiteral("xprop"));
    ASSERT_FALSE(xprop.isEmpty()) << "needs xprop (scripts/setup.sh installs it)";
    ASSERT_TRUE(waitFor(
        [&] {
            QProcess check;
            check.setProcessEnvironment(home_.env);
            check.start(xprop, {"-root", "_NET_SUPPORTING_WM_CHECK"});
            check.waitForFinished(5000);
            return check.readAllStandardOutput().contains("window id");
        },
        20000))
        << "openbox did not take over the screen";
    const auto startTray = [&] {
        tray.process.start(trayer, {"--edge", "top", "--align", "right", "--widthtype",
                                    "pixel", "--width", "120", "--height", "24"});
    };
    startTray();
    ASSERT_TRUE(waitFor(
        [&] {
            if (tray.process.waitForFinished(0) || tray.process.state() == QProcess::NotRunning)
                startTray();
            return !xdotoolOutput({"search", "--onlyvisible", "--class", "trayer"}).isEmpty();
        },
        20000))
        << "trayer " << (tray.process.state() == QProcess::Running ? "runs" : "ended")
        << ", said: " << tray.process.readAllStandardError().toStdString()
        << "; openbox said: " << windowManager.process.readAllStandardError().toStdString();

    startApp("two-monitors-and-builtin.json");
    const auto appWindows = [&] {
        return xdotoolOutput({"search", "--onlyvisible", "--pid", QString::number(app_.processId())});
    };
    ASSERT_TRUE(waitFor([&] { return appWindows().size() == 1; }, 60000))
        << app_.readAllStandardError().toStdString();
    const QString item = appWindows().first();
    // "X=1257\nY=1\nWIDTH=22\nHEIGHT=22\n..." for the item's embedded window.
    QMap<QString, int> geometry;
    for (const QString& line : xdotoolOutput({"getwindowgeometry", "--shell", item}))
        geometry.insert(line.section(u'=', 0, 0), line.section(u'=', 1).toInt());
    ASSERT_LT(geometry["WIDTH"], 64) << "the item is not in the tray";
    const QPoint centre(geometry["X"] + geometry["WIDTH"] / 2, geometry["Y"] + geometry["HEIGHT"] / 2);

    ASSERT_TRUE(xdotool({"mousemove", QString::number(centre.x()), QString::number(centre.y() + 1),
                         "sleep", "0.2", "mousemove", QString::number(centre.x()),
                         QString::number(centre.y())}));
    ASSERT_TRUE(waitFor([&] { return appWindows().size() == 2; }, 10000)) << "no tooltip";
    EXPECT_FALSE(findItem(readItems(itemMap()), "section#1").has_value()) << "the popover opened";

    ASSERT_TRUE(xdotool({"click", "1"}));
    EXPECT_TRUE(waitFor([&] { return findItem(readItems(itemMap()), "section#1").has_value(); },
                        20000))
        << "a click on the item opened no popover";
    app_.kill();
    app_.waitForFinished();
}

// The popover asks the X server whether a compositing manager runs: with one it is the
// panel in a shadow margin (32 wider), without one the bare panel.
TEST_F(DesktopTest, ThePopoverHasItsShadowMarginOnlyWhileACompositorRuns) {
    const QString xcompmgr = QStandardPaths::findExecutable(QStringLiteral("xcompmgr"));
    if (xcompmgr.isEmpty()) GTEST_SKIP() << "needs xcompmgr (scripts/setup.sh installs it)";
    for (const bool compositing : {false, true}) {
        SCOPED_TRACE(compositing ? "with a compositor" : "without one");
        QProcess compositor;
        compositor.setProcessEnvironment(home_.env);
        if (compositing) {
            compositor.start(xcompmgr, {});
            ASSERT_TRUE(compositor.waitForStarted());
            // It owns the selection through a window of its own name.
            ASSERT_TRUE(waitFor(
                [&] { return !xdotoolOutput({"search", "--name", "^xcompmgr$"}).isEmpty(); }, 20000));
        }
        QFile::remove(itemMap());
        startApp("two-monitors-and-builtin.json");
        ASSERT_TRUE(waitFor([&] { return findItem(readItems(itemMap()), "section#1").has_value(); },
                            60000))
            << app_.readAllStandardError().toStdString();
        const QStringList found = xdotoolOutput({"search", "--onlyvisible", "--name", "^Panelwright$"});
        ASSERT_EQ(found.size(), 1);
        const QStringList geometry = xdotoolOutput({"getwindowgeometry", "--shell", found.first()});
        EXPECT_TRUE(geometry.contains(compositing ? QStringLiteral("WIDTH=392")
                                                  : QStringLiteral("WIDTH=360")))
            << geometry.join(u' ').toStdString();
        app_.terminate();
        ASSERT_TRUE(app_.waitForFinished(20000));
        compositor.terminate();
        compositor.waitForFinished();
    }
}

} // namespace
} // namespace pw::test
