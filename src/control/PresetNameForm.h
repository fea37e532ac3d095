#pragma once

// The presets popover's name form, for a new custom preset or a new name
// for one: a heading, the name field, a hint, the validation message as the
// user types, and the primary button (inert while the name is refused) with
// Cancel. Return in the field presses the primary button.
//
// The form knows nothing of presets: the popover hands it the check to run
// and acts on what is submitted. Main thread only.

#include <QWidget>
#include <functional>
#include <optional>

class QLabel;
class QLineEdit;
class QPushButton;

namespace vistrel {

class PresetNameForm : public QWidget {
    Q_OBJECT

public:
    enum class Purpose { create, rename };
    // The message for a refused name, none for an acceptable one.
    using Check = std::function<std::optional<QString>(const QString& name)>;

    explicit PresetNameForm(QWidget* parent);

    // Starts over for `purpose` with `name` in the field (selected) and
    // checked at once.
    void open(Purpose purpose, const QString& name, Check check);
    // Checks the field again: the other presets may have changed.
    void recheck();
    // Empties the field and forgets the check.
    void clear();

    QLineEdit* nameField() const { return m_name; }
    QLabel* message() const { return m_message; }
    QPushButton* primaryButton() const { return m_primary; }
    QPushButton* cancelButton() const { return m_cancel; }

Q_SIGNALS:
    // Only for a name the check accepts.
    void submitted(const QString& name);
    void cancelled();

private:
    void submit();

    Check m_check;
    QLabel* m_symbol;
    QLabel* m_heading;
    QLineEdit* m_name;
    QLabel* m_hint;
    QLabel* m_message;
    QPushButton* m_cancel;
    QPushButton* m_primary;
};

} // namespace vistrel
