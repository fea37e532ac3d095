#pragma once

// The state reader's contract on one input, shared by the QtTest fuzz suite
// and the libFuzzer target:
//   - any bytes are either rejected with a reason or accepted, never a crash
//     (the sanitizers watch the rest);
//   - an accepted document can be written again, and what is written reads
//     back as the same value and writes the same bytes;
//   - normalising it gives the fixed preset layout, and normalising twice
//     changes nothing.

#include <QByteArray>
#include <QString>

namespace vistrel::fuzz {

struct StatePropertyOutcome {
    bool accepted = false;
    QString rejection; // the reader's reason when it rejected the document
    QString failure;   // empty when the contract held
};

StatePropertyOutcome checkStateDocument(const QByteArray& bytes);

} // namespace vistrel::fuzz
