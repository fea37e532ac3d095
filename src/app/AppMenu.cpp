#include "app/AppMenu.h"

#include "coordination/MainViewModel.h"
#include "coordination/PresetModel.h"

#include <QAction>
#include <QMenu>

namespace vistrel {

AppMenu::AppMenu(MainViewModel& viewModel, QObject* parent)
    : QObject(parent), m_viewModel(viewModel), m_menu(std::make_unique<QMenu>(tr("Vistrel"))),
      m_panic(new QAction(m_menu.get()))
{
    m_panic->setShortcut(QKeySequence(Qt::CTRL | Qt::SHIFT | Qt::Key_H));
    m_panic->setShortcutContext(Qt::ApplicationShortcut);
    connect(m_panic, &QAction::triggered, this, [this] {
        m_viewModel.togglePanicHidden();
        m_viewModel.scheduleCaptureUpdate();
    });
    connect(&m_viewModel, &MainViewModel::isPanicHiddenChanged, this, &AppMenu::syncPanicTitle);
    connect(m_viewModel.presetModel(), &PresetModel::presetsChanged, this,
            &AppMenu::rebuildPresetItems);
    syncPanicTitle();
    rebuildPresetItems();
}

AppMenu::~AppMenu() = default;

void AppMenu::syncPanicTitle()
{
    m_panic->setText(m_viewModel.isPanicHidden() ? tr("Resume Vistrel Output")
                                                 : tr("Panic Hide Output"));
}

void AppMenu::rebuildPresetItems()
{
    for (QAction* action : m_menu->actions())
        if (action != m_panic)
            delete action;
    m_menu->addAction(m_panic);
    m_menu->addSeparator();
    for (const SharePreset& preset : m_viewModel.presetModel()->builtInPresets()) {
        QAction* item = m_menu->addAction(tr("Load %1 Preset").arg(preset.title));
        item->setData(preset.id);
        const QString id = preset.id;
        connect(item, &QAction::triggered, this, [this, id] { m_viewModel.applyPreset(id); });
    }
}

} // namespace vistrel
