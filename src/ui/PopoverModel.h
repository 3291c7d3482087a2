#pragma once

#include "viewmodel/PopoverViewModel.h"

#include <QAbstractListModel>
#include <QObject>
#include <QVariantList>

#include <cstdint>
#include <vector>

namespace pw::ui {

// The displays shown in the popover, one row each, for QML. Rows follow the view model's
// list: a display that stays keeps its row and only its changed roles are announced
// (dataChanged), so a slider being dragged is never rebuilt under the pointer.
class DisplayListModel : public QAbstractListModel {
    Q_OBJECT
public:
    enum Role {
        DisplayIdRole = Qt::UserRole + 1,
        TitleRole,
        DDCStatusRole,
        BrightnessRole,
        BrightnessMaxRole,
        VolumeRole,
        VolumeMaxRole,
        IsMutedRole,
        ActiveInputRole,
        DimmingAvailableRole,
        VolumeSupportedRole,
        MuteSupportedRole,
        InputSupportedRole,
        AnsweredRole,
        NoticeRole,
    };

    struct Row {
        std::uint32_t id = 0;
        QString title;
        QString ddcStatus;
        DisplayState state;
        bool dimmingAvailable = true;
        // False for a feature the monitor said it lacks: its control is left out.
        bool volumeSupported = true;
        bool muteSupported = true;
        bool inputSupported = true;
        // False for a monitor that never answered: its controls are shown disabled.
        bool answered = true;
        // A write the monitor did not take, for a few seconds; else empty.
        QString notice;
    };

    explicit DisplayListModel(QObject* parent = nullptr) : QAbstractListModel(parent) {}

    int rowCount(const QModelIndex& parent = {}) const override;
    QVariant data(const QModelIndex& index, int role) const override;
    QHash<int, QByteArray> roleNames() const override;

    // Brings the rows to `rows` with the fewest changes: rows of displays that left are
    // removed, new ones inserted where they belong, the rest updated in place.
    void update(const std::vector<Row>& rows);

private:
    std::vector<Row> rows_;
};

// The popover's model for QML (`model` of PopoverContent): the displays, the input
// choices and the user's actions, handed straight to the core's PopoverViewModel. No
// rule of the popover lives here.
class PopoverModel : public QObject {
    Q_OBJECT
    Q_PROPERTY(QAbstractListModel* displays READ displays CONSTANT)
    Q_PROPERTY(QVariantList inputs READ inputs CONSTANT)
public:
    // `viewModel` must outlive the adapter.
    explicit PopoverModel(PopoverViewModel& viewModel, QObject* parent = nullptr);
    ~PopoverModel() override;

    QAbstractListModel* displays() { return &displays_; }
    QVariantList inputs() const;

    Q_INVOKABLE void changeBrightness(int displayId, qreal value);
    Q_INVOKABLE void changeVolume(int displayId, qreal value);
    Q_INVOKABLE void toggleMute(int displayId);
    Q_INVOKABLE void selectInput(int displayId, int value);
    Q_INVOKABLE void showAbout() { emit aboutRequested(); }
    Q_INVOKABLE void showSettings() { emit settingsRequested(); }
    Q_INVOKABLE void quit() { emit quitRequested(); }

    // Copies the view model's current values into the rows (also run on every change).
    void sync();

signals:
    void aboutRequested();
    void settingsRequested();
    void quitRequested();

private:
    PopoverViewModel& viewModel_;
    PopoverViewModel::ObserverToken token_ = 0;
    DisplayListModel displays_;
};

} // namespace pw::ui
