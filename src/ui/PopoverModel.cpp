#include "ui/PopoverModel.h"

#include <QVariantMap>

#include <algorithm>
#include <cmath>

namespace pw::ui {

// --- DisplayListModel -------------------------------------------------------------------

int DisplayListModel::rowCount(const QModelIndex& parent) const {
    return parent.isValid() ? 0 : static_cast<int>(rows_.size());
}

QVariant DisplayListModel::data(const QModelIndex& index, int role) const {
    if (!index.isValid() || index.row() < 0 || index.row() >= rowCount()) return {};
    const Row& r = rows_[static_cast<std::size_t>(index.row())];
    switch (role) {
    case DisplayIdRole: return static_cast<int>(r.id);
    case TitleRole: return r.title;
    case DDCStatusRole: return r.ddcStatus;
    case BrightnessRole: return r.state.brightness;
    case BrightnessMaxRole: return r.state.brightnessMax;
    case VolumeRole: return r.state.volume;
    case VolumeMaxRole: return r.state.volumeMax;
    case IsMutedRole: return r.state.isMuted;
    case ActiveInputRole: return static_cast<int>(r.state.activeInput);
    case DimmingAvailableRole: return r.dimmingAvailable;
    case VolumeSupportedRole: return r.volumeSupported;
    case MuteSupportedRole: return r.muteSupported;
    case InputSupportedRole: return r.inputSupported;
    case AnsweredRole: return r.answered;
    case NoticeRole: return r.notice;
    default: return {};
    }
}

QHash<int, QByteArray> DisplayListModel::roleNames() const {
    return {
        {DisplayIdRole, "displayId"},     {TitleRole, "title"},
        {DDCStatusRole, "ddcStatus"},     {BrightnessRole, "brightness"},
        {BrightnessMaxRole, "brightnessMax"}, {VolumeRole, "volume"},
        {VolumeMaxRole, "volumeMax"},     {IsMutedRole, "isMuted"},
        {ActiveInputRole, "activeInput"}, {DimmingAvailableRole, "dimmingAvailable"},
        {VolumeSupportedRole, "volumeSupported"}, {MuteSupportedRole, "muteSupported"},
        {InputSupportedRole, "inputSupported"}, {AnsweredRole, "answered"},
        {NoticeRole, "notice"},
    };
}

namespace {
QList<int> changedRoles(const DisplayListModel::Row& a, const DisplayListModel::Row& b) {
    using M = DisplayListModel;
    QList<int> roles;
    if (a.title != b.title) roles << M::TitleRole;
    if (a.ddcStatus != b.ddcStatus) roles << M::DDCStatusRole;
    if (a.state.brightness != b.state.brightness) roles << M::BrightnessRole;
    if (a.state.brightnessMax != b.state.brightnessMax) roles << M::BrightnessMaxRole;
    if (a.state.volume != b.state.volume) roles << M::VolumeRole;
    if (a.state.volumeMax != b.state.volumeMax) roles << M::VolumeMaxRole;
    if (a.state.isMuted != b.state.isMuted) roles << M::IsMutedRole;
    if (a.state.activeInput != b.state.activeInput) roles << M::ActiveInputRole;
    if (a.dimmingAvailable != b.dimmingAvailable) roles << M::DimmingAvailableRole;
    if (a.volumeSupported != b.volumeSupported) roles << M::VolumeSupportedRole;
    if (a.muteSupported != b.muteSupported) roles << M::MuteSupportedRole;
    if (a.inputSupported != b.inputSupported) roles << M::InputSupportedRole;
    if (a.answered != b.answered) roles << M::AnsweredRole;
    if (a.notice != b.notice) roles << M::NoticeRole;
    return roles;
}

bool contains(const std::vector<DisplayListModel::Row>& rows, std::uint32_t id) {
    return std::any_of(rows.begin(), rows.end(), [id](const auto& r) { return r.id == id; });
}
} // namespace

void DisplayListModel::update(const std::vector<Row>& rows) {
    // Rows of displays that left.
    for (int i = rowCount() - 1; i >= 0; --i) {
        if (contains(rows, rows_[static_cast<std::size_t>(i)].id)) continue;
        beginRemoveRows({}, i, i);
        rows_.erase(rows_.begin() + i);
        endRemoveRows();
    }
    // The survivors keep their order in the manager's list; if they were reordered (not
    // something a display list does), start over.
    std::vector<std::uint32_t> kept;
    for (const auto& r : rows)
        if (contains(rows_, r.id)) kept.push_back(r.id);
    for (std::size_t i = 0; i < kept.size(); ++i) {
        if (rows_[i].id == kept[i]) continue;
        beginResetModel();
        rows_ = rows;
        endResetModel();
        return;
    }
    // New displays where they belong, then the values of every row.
    for (std::size_t i = 0; i < rows.size(); ++i) {
        const int at = static_cast<int>(i);
        if (i < rows_.size() && rows_[i].id == rows[i].id) {
            const QList<int> roles = changedRoles(rows_[i], rows[i]);
            if (roles.isEmpty()) continue;
            rows_[i] = rows[i];
            emit dataChanged(index(at), index(at), roles);
            continue;
        }
        beginInsertRows({}, at, at);
        rows_.insert(rows_.begin() + at, rows[i]);
        endInsertRows();
    }
}

// --- PopoverModel -----------------------------------------------------------------------

PopoverModel::PopoverModel(PopoverViewModel& viewModel, QObject* parent)
    : QObject(parent), viewModel_(viewModel) {
    token_ = viewModel_.subscribe([this] { sync(); });
    sync();
}

PopoverModel::~PopoverModel() { viewModel_.unsubscribe(token_); }

void PopoverModel::sync() {
    std::vector<DisplayListModel::Row> rows;
    for (const auto& d : viewModel_.ddcDisplays())
        rows.push_back({d.id, QString::fromStdString(displayTitle(d)),
                        QString::fromUtf8(rawValue(d.ddcStatus).data(),
                                          static_cast<qsizetype>(rawValue(d.ddcStatus).size())),
                        viewModel_.stateFor(d.id), viewModel_.dimmingAvailable(d.id),
                        viewModel_.supports(d.id, VCPCode::volume),
                        viewModel_.supports(d.id, VCPCode::mute),
                        viewModel_.supports(d.id, VCPCode::inputSource),
                        viewModel_.answered(d.id),
                        QString::fromStdString(viewModel_.writeFailure(d.id))});
    displays_.update(rows);
}

QVariantList PopoverModel::inputs() const {
    QVariantList list;
    for (const auto& choice : PopoverViewModel::inputChoices()) {
        QVariantMap entry;
        entry[QStringLiteral("value")] = static_cast<int>(choice.source);
        entry[QStringLiteral("label")] = QString::fromUtf8(
            choice.label.data(), static_cast<qsizetype>(choice.label.size()));
        entry[QStringLiteral("symbol")] = QString::fromUtf8(
            choice.symbol.data(), static_cast<qsizetype>(choice.symbol.size()));
        list.append(entry);
    }
    return list;
}

// Display ids arrive from QML as int; an id that no shown display has is ignored by the
// view model, like every other stale action.
void PopoverModel::changeBrightness(int displayId, qreal value) {
    if (displayId < 0 || !std::isfinite(value)) return;
    viewModel_.moveBrightnessSlider(static_cast<std::uint32_t>(displayId), value);
}

void PopoverModel::changeVolume(int displayId, qreal value) {
    if (displayId < 0 || !std::isfinite(value)) return;
    viewModel_.moveVolumeSlider(static_cast<std::uint32_t>(displayId), value);
}

void PopoverModel::toggleMute(int displayId) {
    if (displayId < 0) return;
    viewModel_.toggleMute(static_cast<std::uint32_t>(displayId));
}

void PopoverModel::selectInput(int displayId, int value) {
    if (displayId < 0 || value < 0 || value > 0xFFFF) return;
    viewModel_.selectInput(static_cast<std::uint32_t>(displayId),
                           static_cast<InputSource>(static_cast<std::uint16_t>(value)));
}

} // namespace pw::ui
