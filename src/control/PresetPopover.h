#pragma once

// "Presets": the built-in and the custom presets as cards, each able to
// apply, store the live configuration or be reset; custom ones can also be
// moved, renamed and deleted. "New Preset" and "Rename" open the name form
// in place of the list, "Delete" asks first. The cards follow the preset
// model and the live configuration while the popover is open, so "Active"
// moves with what is live.
//
// The popover's own state is the form's draft and purpose and the preset
// awaiting deletion; everything else is read from the main view model.
// Main thread only.

#include "control/Popover.h"
#include "model/SharePreset.h"

#include <QDateTime>
#include <QPointer>
#include <functional>
#include <map>
#include <optional>

class QLabel;
class QPushButton;
class QScrollArea;
class QStackedWidget;
class QVBoxLayout;

namespace vistrel {

class MainViewModel;
class PresetCardView;
class PresetNameForm;

class PresetPopover : public Popover {
    Q_OBJECT

public:
    // `now` dates the "Saved …" lines; the system clock when not given.
    PresetPopover(MainViewModel& model, PopoverHub& hub, QWidget* parent,
                  std::function<QDateTime()> now = {});

    PresetCardView* card(const QString& presetID) const;
    // The bare number beside "Custom Presets".
    QLabel* customCount() const { return m_customCount; }
    QPushButton* newPresetButton() const { return m_newPreset; }
    QScrollArea* list() const { return m_scroll; }
    PresetNameForm* form() const { return m_form; }
    bool isFormOpen() const;
    bool isAskingToDelete() const;
    QPushButton* confirmDeleteButton() const { return m_confirmDelete; }
    QPushButton* cancelDeleteButton() const { return m_cancelDelete; }

protected:
    // Escape leaves the form or the question first, then the popover.
    void keyPressEvent(QKeyEvent* event) override;

private:
    QWidget* buildList();
    QWidget* buildDeleteQuestion();
    PresetCardView* makeCard(const QString& presetID);
    void refresh();
    void openForm(const std::optional<QString>& editingPresetID);
    void submitName(const QString& name);
    void askToDelete(const QString& presetID);
    void showList();

    MainViewModel& m_model;
    std::function<QDateTime()> m_now;
    QStackedWidget* m_pages = nullptr;
    QScrollArea* m_scroll = nullptr;
    QVBoxLayout* m_builtInCards = nullptr;
    QVBoxLayout* m_customCards = nullptr;
    QLabel* m_customCount = nullptr;
    QPushButton* m_newPreset = nullptr;
    PresetNameForm* m_form = nullptr;
    QPushButton* m_confirmDelete = nullptr;
    QPushButton* m_cancelDelete = nullptr;
    QWidget* m_question = nullptr;
    // What gets the focus back when the form or the question closes.
    QPointer<QWidget> m_returnFocus;
    std::map<QString, PresetCardView*> m_cards;

    bool m_isCreatingPreset = false;
    std::optional<QString> m_editingPresetID;
    std::optional<SharePreset> m_pendingDeletion;
};

} // namespace vistrel
