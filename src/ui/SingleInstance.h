#pragma once

#include <QObject>
#include <QString>

class QLocalServer;

namespace pw::ui {

// One running application per user session. The first instance listens on a local
// socket named after the user's runtime folder; a later start connects, asks the running
// one to open its popover and exits. A socket left behind by a crashed instance (nobody
// answers) is removed and taken over.
class SingleInstance : public QObject {
    Q_OBJECT
public:
    // `name` is the socket's name; the default is derived from the session.
    explicit SingleInstance(QString name = defaultName(), QObject* parent = nullptr);
    ~SingleInstance() override;

    // True when another instance answered and was asked to show its popover.
    bool notifyRunningInstance(int timeoutMs = 1000);
    // Starts listening; false (with a reason in `error`) when the socket cannot be made.
    bool listen(QString* error = nullptr);

    static QString defaultName();

signals:
    // Another start of the program asked this instance to show itself.
    void activationRequested();

private:
    QString name_;
    QLocalServer* server_ = nullptr;
};

} // namespace pw::ui
