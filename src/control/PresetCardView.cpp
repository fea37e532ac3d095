#include "control/PresetCardView.h"

#include "control/DeckState.h"
#include "control/DeckText.h"
#include "control/ElidedLabel.h"
#include "control/SourceBadgeView.h"
#include "control/SourcePickerStyle.h"
#include "presentation/SymbolIcon.h"

#include <QCoreApplication>
#include <QHBoxLayout>
#include <QKeyEvent>
#include <QLabel>
#include <QMenu>
#include <QPainter>
#include <QPushButton>
#include <QToolButton>
#include <QVBoxLayout>

using namespace Qt::StringLiterals;

namespace vistrel {

namespace {

constexpr int symbolSize = 18;
constexpr qreal cornerRadius = 10;

QPushButton* cardButton(const QString& text, QWidget* parent)
{
    auto* button = new QPushButton(text, parent);
    // Return presses the focused button too, not only Space.
    button->setAutoDefault(true);
    return button;
}

void scaleFont(QWidget* widget, qreal factor)
{
    QFont font = widget->font();
    font.setPointSizeF(font.pointSizeF() * factor);
    widget->setFont(font);
}

void showBadge(SourceBadgeView* badge, const std::optional<QString>& text, const QColor& tint)
{
    if (text)
        badge->setBadge(*text, tint);
    badge->setVisible(text.has_value());
}

} // namespace

PresetCardView::PresetCardView(QWidget* parent)
    : QFrame(parent), m_symbol(new QLabel(this)), m_title(new ElidedLabel(this)),
      m_category(new SourceBadgeView(this)), m_active(new SourceBadgeView(this)),
      m_content(new SourceBadgeView(this)), m_frame(new SourceBadgeView(this)),
      m_summary(new QLabel(this)), m_status(new QLabel(this)),
      m_apply(cardButton(deckTr("Apply"), this)), m_save(cardButton(deckTr("Save Current"), this)),
      m_reset(cardButton(deckTr("Reset"), this)), m_menuButton(new QToolButton(this)),
      m_menu(new QMenu(this))
{
    setSizePolicy(QSizePolicy::Preferred, QSizePolicy::Fixed);
    QFont bold = m_title->font();
    bold.setWeight(QFont::DemiBold);
    m_title->setFont(bold);
    m_symbol->setFixedSize(symbolSize, symbolSize);
    m_summary->setWordWrap(true);
    m_summary->setForegroundRole(QPalette::PlaceholderText);
    scaleFont(m_summary, 0.9);
    m_status->setForegroundRole(QPalette::PlaceholderText);
    scaleFont(m_status, 0.85);
    m_active->setBadge(deckTr("Active"), deckColor::mint);

    m_moveUp = m_menu->addAction(deckTr("Move Up"), this, [this] { Q_EMIT moveRequested(false); });
    m_moveDown =
        m_menu->addAction(deckTr("Move Down"), this, [this] { Q_EMIT moveRequested(true); });
    m_rename = m_menu->addAction(deckTr("Rename"), this, &PresetCardView::renameRequested);
    m_delete = m_menu->addAction(deckTr("Delete"), this, &PresetCardView::deleteRequested);
    m_menuButton->setMenu(m_menu);
    m_menuButton->setPopupMode(QToolButton::InstantPopup);
    m_menuButton->setAutoRaise(true);
    m_menuButton->setFocusPolicy(Qt::StrongFocus);
    m_menuButton->setIcon(QIcon(QPixmap::fromImage(
        symbolImage(u"ellipsis.circle", 16, deckColor::secondary, devicePixelRatioF()))));
    m_menuButton->setToolTip(deckTr("Preset Actions"));
    m_menuButton->setAccessibleName(deckTr("Preset Actions"));
    // No arrow under the symbol: the ellipsis already says "menu".
    m_menuButton->setStyleSheet(u"QToolButton::menu-indicator { image: none; width: 0; }"_s);
    m_menuButton->installEventFilter(this);

    connect(m_apply, &QPushButton::clicked, this, &PresetCardView::applyRequested);
    connect(m_save, &QPushButton::clicked, this, &PresetCardView::saveRequested);
    connect(m_reset, &QPushButton::clicked, this, &PresetCardView::resetRequested);

    auto* titleRow = new QHBoxLayout;
    titleRow->setSpacing(6);
    titleRow->addWidget(m_symbol);
    titleRow->addWidget(m_title, 1);
    titleRow->addWidget(m_category);
    titleRow->addWidget(m_active);
    titleRow->addWidget(m_menuButton);
    auto* statusRow = new QHBoxLayout;
    statusRow->setSpacing(4);
    statusRow->addWidget(m_status, 1);
    statusRow->addWidget(m_content);
    statusRow->addWidget(m_frame);
    auto* buttons = new QHBoxLayout;
    buttons->setSpacing(6);
    buttons->addWidget(m_apply);
    buttons->addWidget(m_save);
    buttons->addWidget(m_reset);
    buttons->addStretch();
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(10, 8, 10, 10);
    layout->setSpacing(5);
    layout->addLayout(titleRow);
    layout->addWidget(m_summary);
    layout->addLayout(statusRow);
    layout->addLayout(buttons);
}

void PresetCardView::setState(const PresetCardState& state)
{
    if (state == m_state)
        return;
    if (state.symbolName != m_state.symbolName)
        m_symbol->setPixmap(QPixmap::fromImage(
            symbolImage(state.symbolName, symbolSize, deckColor::indigo, devicePixelRatioF())));
    m_state = state;
    m_title->setText(state.title);
    m_title->setToolTip(state.title);
    setAccessibleName(state.title);
    m_category->setBadge(state.categoryBadge,
                         state.isCustom ? deckColor::indigo : secondaryTextColor(palette()));
    m_active->setVisible(state.isActive);
    showBadge(m_content, state.contentBadge, secondaryTextColor(palette()));
    showBadge(m_frame, state.frameBadge, secondaryTextColor(palette()));
    m_summary->setText(state.summary);
    m_status->setText(state.status);
    m_reset->setEnabled(state.canReset);
    m_menuButton->setVisible(state.isCustom);
    m_moveUp->setEnabled(state.canMoveUp);
    m_moveDown->setEnabled(state.canMoveDown);
    update();
}

QList<QWidget*> PresetCardView::focusOrder() const
{
    return {m_menuButton, m_apply, m_save, m_reset};
}

bool PresetCardView::eventFilter(QObject* watched, QEvent* event)
{
    // The menu opens from the keyboard with Return as well as Space.
    if (watched == m_menuButton && event->type() == QEvent::KeyPress) {
        const int key = static_cast<QKeyEvent*>(event)->key();
        if (key == Qt::Key_Return || key == Qt::Key_Enter) {
            m_menuButton->showMenu();
            return true;
        }
    }
    return QFrame::eventFilter(watched, event);
}

void PresetCardView::paintEvent(QPaintEvent*)
{
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    QColor edge = m_state.isActive ? deckColor::mint : secondaryTextColor(palette());
    edge.setAlphaF(m_state.isActive ? 0.9f : 0.35f);
    painter.setPen(QPen(edge, 1));
    painter.setBrush(palette().color(QPalette::Base));
    painter.drawRoundedRect(QRectF(rect()).adjusted(0.5, 0.5, -0.5, -0.5), cornerRadius,
                            cornerRadius);
}

} // namespace vistrel
