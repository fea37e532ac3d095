#include "control/DeckNoticeView.h"

#include "presentation/SymbolIcon.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>
#include <QVBoxLayout>

namespace vistrel {

DeckNoticeView::DeckNoticeView(std::function<void()> request, std::function<void()> openSettings,
                               std::function<void()> dismiss, QWidget* parent)
    : QWidget(parent), m_icon(new QLabel(this)), m_title(new QLabel(this)),
      m_message(new QLabel(this)), m_request(new QPushButton(tr("Request"), this)),
      m_settings(new QPushButton(tr("Settings"), this)),
      m_dismiss(new QPushButton(tr("Dismiss"), this))
{
    QFont bold = m_title->font();
    bold.setWeight(QFont::DemiBold);
    m_title->setFont(bold);
    m_message->setWordWrap(true);
    m_message->setForegroundRole(QPalette::PlaceholderText);
    m_icon->setFixedWidth(16);
    m_icon->setAlignment(Qt::AlignTop | Qt::AlignHCenter);
    m_request->setDefault(true);
    connect(m_request, &QPushButton::clicked, this, [request] { request(); });
    connect(m_settings, &QPushButton::clicked, this, [openSettings] { openSettings(); });
    connect(m_dismiss, &QPushButton::clicked, this, [dismiss] { dismiss(); });

    auto* text = new QVBoxLayout;
    text->setSpacing(2);
    text->addWidget(m_title);
    text->addWidget(m_message);
    auto* buttons = new QHBoxLayout;
    buttons->addStretch();
    buttons->addWidget(m_settings);
    buttons->addWidget(m_request);
    buttons->addWidget(m_dismiss);
    text->addLayout(buttons);
    auto* layout = new QHBoxLayout(this);
    layout->setContentsMargins(4, 6, 4, 0);
    layout->addWidget(m_icon, 0, Qt::AlignTop);
    layout->addLayout(text, 1);
}

void DeckNoticeView::setNotice(const DeckNotice& notice)
{
    m_icon->setPixmap(QPixmap::fromImage(symbolImage(
        noticeSymbol(notice.tone), 16, noticeColour(notice.tone), devicePixelRatioF())));
    m_title->setText(notice.title);
    m_message->setText(notice.message);
    const bool permission = notice.tone == NoticeTone::warning;
    m_request->setVisible(permission);
    m_settings->setVisible(permission);
    m_dismiss->setVisible(notice.isDismissible);
}

} // namespace vistrel
