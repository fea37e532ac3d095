#pragma once

// One tile of the control deck: a rounded rectangle in the tile's tint
// (strong when filled, a light wash when subtle) with its symbol, title,
// subtitle and an optional small accessory symbol. It takes the keyboard
// focus, shows it with a ring, and looks faded while disabled.

#include "control/DeckState.h"

#include <QAbstractButton>

namespace vistrel {

class CompactTile : public QAbstractButton {
    Q_OBJECT

public:
    explicit CompactTile(QWidget* parent);

    const TileState& state() const { return m_state; }
    // Repaints only when something changed.
    void setState(const TileState& state);
    QSize sizeHint() const override;

protected:
    void paintEvent(QPaintEvent* event) override;

private:
    TileState m_state;
};

} // namespace vistrel
