#pragma once

// The deck's simple popovers. The single-choice ones, "Visibility Mode",
// "Frame Style" and "Display": a choice closes the popover; choosing the row
// that is already selected closes it and changes nothing.

class QString;
class QWidget;

namespace vistrel {

class MainViewModel;
class Popover;
class PopoverHub;

Popover* makeModePopover(MainViewModel& model, PopoverHub& hub, QWidget* parent);
Popover* makeFramePopover(MainViewModel& model, PopoverHub& hub, QWidget* parent);
Popover* makeDisplayPopover(MainViewModel& model, PopoverHub& hub, QWidget* parent);

// "Current Session": the live settings as label and value rows, then what
// each of them means, then `note` when there is one. Read when it opens.
Popover* makeInformationPopover(MainViewModel& model, const QString& note, PopoverHub& hub,
                                QWidget* parent);

} // namespace vistrel
