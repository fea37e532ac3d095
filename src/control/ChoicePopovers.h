#pragma once

// The single-choice popovers of the deck: "Visibility Mode", "Frame Style"
// and "Display". A choice closes the popover; choosing the row that is
// already selected closes it and changes nothing.

class QWidget;

namespace vistrel {

class MainViewModel;
class Popover;
class PopoverHub;

Popover* makeModePopover(MainViewModel& model, PopoverHub& hub, QWidget* parent);
Popover* makeFramePopover(MainViewModel& model, PopoverHub& hub, QWidget* parent);
Popover* makeDisplayPopover(MainViewModel& model, PopoverHub& hub, QWidget* parent);

} // namespace vistrel
