#include "ui/SettingsModel.h"

#include "base/DiagnosticLog.h"
#include "base/Preferences.h"
#include "platform/LoginItems.h"
#include "platform/UserDefaults.h"
#include "ui/Updater.h"

namespace pw::ui {
namespace {

const QString kNoLoginItems =
    QStringLiteral("Starting at login is not available on this system.");
const QString kLoginItemFailed =
    QStringLiteral("The autostart entry could not be changed; see the log.");
const QString kNoUpdater = QStringLiteral("This build has no updater.");

// The display's own title, without a friendly name: the row lays the name being typed
// over it, so typing never rebuilds the row under the cursor.
std::string ownTitle(const ExternalDisplay& display) {
    return display.name.empty() ? "Display " + std::to_string(display.id) : display.name;
}

std::string shapeOf(const ExternalDisplay& display) {
    return std::to_string(display.id) + '\n' + ownTitle(display) + '\n' +
           std::string(rawValue(display.ddcStatus)) + '\n' + display.preferenceKey();
}

} // namespace

SettingsModel::SettingsModel(std::shared_ptr<platform::UserDefaults> store,
                             std::shared_ptr<platform::LoginItems> loginItems,
                             std::shared_ptr<Updater> updater, QObject* parent)
    : QObject(parent), store_(std::move(store)), loginItems_(std::move(loginItems)),
      updater_(std::move(updater)) {
    if (!loginItems_) launchAtLoginNote_ = kNoLoginItems;
    reload();
}

SettingsModel::~SettingsModel() = default;

bool SettingsModel::automaticUpdatesAvailable() const {
    return updater_ && updater_->supportsAutomaticChecks();
}

QString SettingsModel::automaticUpdatesNote() const {
    if (!updater_) return kNoUpdater;
    return updater_->automaticChecksNote();
}

void SettingsModel::reload() {
    if (store_) {
        startupAction_ = static_cast<int>(Preferences::rawValue(Preferences::startupAction(*store_)));
        showOSD_ = Preferences::showOSD(*store_);
        launchAtLogin_ = Preferences::boolean(*store_, Preferences::kLaunchAtLogin);
    }
    if (loginItems_) {
        const bool registered = loginItems_->isEnabled();
        if (store_ && registered != launchAtLogin_) store_->set(Preferences::kLaunchAtLogin, registered);
        launchAtLogin_ = registered;
        launchAtLoginNote_.clear();
    }
    automaticUpdates_ = updater_ && updater_->automaticallyChecksForUpdates();
    emit generalChanged();
}

void SettingsModel::setDisplays(const std::vector<ExternalDisplay>& displays) {
    std::vector<std::string> shape;
    shape.reserve(displays.size());
    for (const auto& display : displays) shape.push_back(shapeOf(display));
    if (shape == shape_) return;
    shape_ = std::move(shape);
    displays_ = rowsFor(displays);
    emit displaysChanged();
}

QVariantList SettingsModel::rowsFor(const std::vector<ExternalDisplay>& displays) const {
    QVariantList rows;
    for (const auto& display : displays) {
        const std::string key = display.preferenceKey();
        QVariantMap row;
        row[QStringLiteral("displayId")] = static_cast<qint64>(display.id);
        row[QStringLiteral("title")] = QString::fromStdString(ownTitle(display));
        const std::string_view status = rawValue(display.ddcStatus);
        row[QStringLiteral("ddcStatus")] = QString::fromUtf8(status.data(), qsizetype(status.size()));
        row[QStringLiteral("preferenceKey")] = QString::fromStdString(key);
        std::optional<std::string> name;
        bool longer = false;
        bool software = false;
        if (store_) {
            name = Preferences::friendlyName(*store_, key);
            longer = Preferences::longerDelay(*store_, key);
            software = Preferences::forceSoftwareBrightness(*store_, key);
        }
        row[QStringLiteral("friendlyName")] = QString::fromStdString(name.value_or(""));
        row[QStringLiteral("longerDelay")] = longer;
        row[QStringLiteral("forceSoftware")] = software;
        rows.append(row);
    }
    return rows;
}

void SettingsModel::setStartupAction(int raw) {
    const auto action = Preferences::startupActionFromRaw(raw);
    if (!action) return; // the picker offers only the three cases
    if (store_) store_->set(Preferences::kStartupAction, Preferences::rawValue(*action));
    startupAction_ = raw;
    emit generalChanged();
}

void SettingsModel::setLaunchAtLogin(bool enabled) {
    bool now = enabled;
    if (loginItems_) {
        const bool changed = loginItems_->setEnabled(enabled);
        now = loginItems_->isEnabled();
        launchAtLoginNote_ = changed && now == enabled ? QString() : kLoginItemFailed;
        if (!launchAtLoginNote_.isEmpty())
            DiagnosticLog::log("App", enabled ? "Could not register the login item"
                                              : "Could not remove the login item");
    }
    if (store_) store_->set(Preferences::kLaunchAtLogin, now);
    launchAtLogin_ = now;
    emit generalChanged();
}

void SettingsModel::setShowOSD(bool show) {
    if (store_) store_->set(Preferences::kShowOSD, show);
    showOSD_ = show;
    emit generalChanged();
}

void SettingsModel::setAutomaticUpdates(bool enabled) {
    if (!automaticUpdatesAvailable()) return;
    updater_->setAutomaticallyChecksForUpdates(enabled);
    automaticUpdates_ = updater_->automaticallyChecksForUpdates();
    emit generalChanged();
}

void SettingsModel::checkForUpdates() {
    if (updater_) updater_->checkForUpdates();
}

void SettingsModel::setFriendlyName(const QString& preferenceKey, const QString& name) {
    if (!store_) return;
    std::optional<std::string> value;
    if (!name.isEmpty()) value = name.toStdString();
    Preferences::setFriendlyName(*store_, value, preferenceKey.toStdString());
    emit displayOptionsEdited();
}

void SettingsModel::setLongerDelay(const QString& preferenceKey, bool enabled) {
    if (store_) Preferences::setLongerDelay(*store_, enabled, preferenceKey.toStdString());
}

void SettingsModel::setForceSoftwareBrightness(const QString& preferenceKey, bool enabled) {
    if (store_) Preferences::setForceSoftwareBrightness(*store_, enabled, preferenceKey.toStdString());
}

} // namespace pw::ui
