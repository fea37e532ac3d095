#include "control/ApplicationRowView.h"

#include "control/SourceBadgeView.h"

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
      m_name(new QLabel(this)), m_detail(new QLabel(this)), m_count(new QLabel(this)),
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
    QPalette secondary = m_detail->palette();
    secondary.setColor(QPalette::WindowText,
                       secondary.color(QPalette::Disabled, QPalette::WindowText));
    m_detail->setPalette(secondary);
    m_count->setPalette(secondary);
    // Long names and hints give way to the badges and the action.
    m_name->setSizePolicy(QSizePolicy::Ignored, QSizePolicy::Preferred);
    m_detail->setSizePolicy(QSizePolicy::Ignored, QSizePolicy::Preferred);

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
    if (m_applied && row == m_row)
        return;
    setTextIfChanged(m_name, row.name);
    setTextIfChanged(m_detail, row.detail);
    setTextIfChanged(m_count, row.windowCount);
    m_visibility->setBadge(SourcePickerRows::visibilityText(row.visibility),
                           visibilityTint(row.visibility, palette()));
    if (m_action->text() != row.actionLabel)
        m_action->setText(row.actionLabel);
    m_action->setChecked(row.isSelected);
    if (!m_applied || row.hasExpandControl != m_row.hasExpandControl)
        m_expand->setVisible(row.hasExpandControl);
    if (!m_applied || row.expandSymbol != m_row.expandSymbol)
        m_expand->setIcon(m_icons(row.expandSymbol));
    m_expand->setToolTip(row.isExpanded ? tr("Collapse") : tr("Expand"));
    m_row = row;
    m_applied = true;
}

} // namespace vistrel
