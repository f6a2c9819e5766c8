// Manifest texts by the million, for comparing readers: mostly whole records, with everything in
// them that can lead a reader astray. The same seed and number give the same text everywhere.
#ifndef TESTS_SUPPORT_MANIFESTTEXTS_H
#define TESTS_SUPPORT_MANIFESTTEXTS_H

#include "manifest/ProgramData.h"

/// What one reading is given.
struct ManifestText
{
    QString rootTag;
    QString xml;
    ProgramData start; ///< The record that is read into; often not a fresh one.
};

/// Returns text @p number of the series @p seed.
ManifestText manifestText(quint64 seed, quint64 number);

#endif // TESTS_SUPPORT_MANIFESTTEXTS_H
