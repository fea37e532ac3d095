#include "control/ApplicationRowView.h"

#include "control/ElidedLabel.h"
#include "control/SourceBadgeView.h"
#include "control/SourcePickerStyle.h"

#include <QCheckBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QToolButton>
#include <QVBoxLayout>

namespace vistrel {

namespace {

void setTextIfChanged(QLabel* label, const QString& text)
{
    if (label->text() != text)
        label->setText(text);
}

} // namespace

ApplicationRowView::ApplicationRowView(IconLookup icons, QWidget* parent)
    : QWidget(parent), m_icons(std::move(icons)), m_expand(new QToolButton(this)),
      m_name(new ElidedLabel(this)), m_detail(new ElidedLabel(this)), m_count(new QLabel(this)),
      m_visibility(new SourceBadgeView(this)), m_action(new QCheckBox(this))
{
    m_expand->setAutoRaise(true);
    m_expand->setIconSize(QSize(14, 14));
    // Rows without windows keep the space, so every name starts at one edge.
    QSizePolicy keepSpace = m_expand->sizePolicy();
    keepSpace.setRetainSizeWhenHidden(true);
    m_expand->setSizePolicy(keepSpace);

    QFont nameFont = m_name->font();
    nameFont.setWeight(QFont::DemiBold);
    m_name->setFont(nameFont);
    QFont small = m_detail->font();
    small.setPointSizeF(small.pointSizeF() * 0.85);
    m_detail->setFont(small);
    m_count->setFont(small);
    m_detail->setTextColor(secondaryTextColor(palette()));
    QPalette secondary = m_count->palette();
    secondary.setColor(QPalette::WindowText, secondaryTextColor(secondary));
    m_count->setPalette(secondary);
    setAttribute(Qt::WA_Hover);

    auto* texts = new QVBoxLayout;
    texts->setSpacing(0);
    texts->addWidget(m_name);
    texts->addWidget(m_detail);
    auto* layout = new QHBoxLayout(this);
    layout->setContentsMargins(4, 4, 8, 4);
    layout->addWidget(m_expand);
    layout->addLayout(texts, 1);
    layout->addWidget(m_count);
    layout->addWidget(m_visibility);
    layout->addWidget(m_action);

    connect(m_expand, &QToolButton::clicked, this, &ApplicationRowView::expansionToggled);
    connect(m_action, &QCheckBox::clicked, this, &ApplicationRowView::selectionToggled);
}

void ApplicationRowView::apply(const SourcePickerApplicationRow& row)
{
    m_name->setText(row.name);
    m_detail->setText(row.detail);
    setTextIfChanged(m_count, row.windowCount);
    m_visibility->setBadge(SourcePickerRows::visibilityText(row.visibility),
                           visibilityTint(row.visibility, palette()));
    if (m_action->text() != row.actionLabel)
        m_action->setText(row.actionLabel);
    m_action->setChecked(row.isSelected);
    if (!m_applied || row.hasExpandControl != m_row.hasExpandControl)
        m_expand->setVisible(row.hasExpandControl);
    if (!m_applied || row.expandSymbol != m_row.expandSymbol) {
        m_expand->setIcon(m_icons(row.expandSymbol));
        m_expand->setToolTip(row.isExpanded ? tr("Collapse") : tr("Expand"));
    }
    m_row = row;
    m_applied = true;
}

void ApplicationRowView::paintEvent(QPaintEvent*)
{
    paintRowHover(*this);
}

} // namespace vistrel
