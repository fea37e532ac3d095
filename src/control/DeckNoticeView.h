#pragma once

// The deck's notice line: an icon by tone, the title and the message; for
// the missing permission also "Request" and "Settings"; "Dismiss" for one the
// user may put away.

#include "control/DeckState.h"

#include <QWidget>
#include <functional>

class QLabel;
class QPushButton;

namespace vistrel {

class DeckNoticeView : public QWidget {
    Q_OBJECT

public:
    DeckNoticeView(std::function<void()> request, std::function<void()> openSettings,
                   std::function<void()> dismiss, QWidget* parent);

    void setNotice(const DeckNotice& notice);

private:
    QLabel* m_icon;
    QLabel* m_title;
    QLabel* m_message;
    QPushButton* m_request;
    QPushButton* m_settings;
    QPushButton* m_dismiss;
};

} // namespace vistrel
