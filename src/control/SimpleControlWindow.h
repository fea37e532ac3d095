#pragma once

// The control window "Vistrel" in its plain form: what is shared, the output
// window's button ("Hidden" / "Capture Area"), "Always on Top", the
// application menu (a menu button and the context menu) and Quit. It has no
// title bar; the window placement moves it by its background.
//
// Main thread only. The view model, registry and menu outlive the window.

#include <QWidget>
#include <functional>

class QCheckBox;
class QLabel;
class QMenu;
class QPushButton;

namespace vistrel {

class MainViewModel;
class WindowRegistry;

class SimpleControlWindow : public QWidget {
    Q_OBJECT

public:
    SimpleControlWindow(MainViewModel& viewModel, WindowRegistry& registry, QMenu* appMenu,
                        std::function<void()> quit, QWidget* parent = nullptr);

    QPushButton* outputButton() const { return m_outputButton; }

protected:
    void contextMenuEvent(QContextMenuEvent* event) override;

private:
    void syncSummary();
    void syncOutputButton();

    MainViewModel& m_viewModel;
    WindowRegistry& m_registry;
    QMenu* m_appMenu;
    QLabel* m_summary;
    QPushButton* m_outputButton;
    QCheckBox* m_alwaysOnTop;
};

} // namespace vistrel
