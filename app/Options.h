// The command line: process-wide option globals and the function that fills them.
//
//   if (!processArgs(argc, argv)) // -b -n Editor -d release -v 2.0
//       return 1;
//   if (fBuildVerFile)            // fProgramName is "Editor" now
//
// processArgs() is the only writer; after it has returned, the globals are read and never changed.
#ifndef APP_OPTIONS_H
#define APP_OPTIONS_H

#include <QString>

extern QString fProgramName;    ///< -n: the program's name.
extern QString fProgramBaseDir; ///< -d: installation directory, or the release tree of a build.
extern QString fProgramVersion; ///< -v: installed version, or the version being published.
extern QString fUpdateUrl;      ///< -l: URL of the version file.
extern QString fSharedMemKey;   ///< -s: key of the host's shared-memory segment.
extern QString fProgramExe;     ///< -x: the program's executable, started after an update.
extern QString fChangelogFile;  ///< --changelog: file with the release notes.

extern bool fBuildVerFile; ///< -b: build the version file.
extern bool fCheckVerOnly; ///< -c: check for a new version and report it.
extern bool fDoUpdate;     ///< -u: update the installation.
extern bool fRequiredUpd;  ///< -r: mark the published update as required.

/// Parses @p argv[1] to @p argv[@p argc - 1] from left to right into the globals above and deletes
/// the files that `--cleanup` lists.
///
/// Only the second character of a one-letter option counts, so `-name` is `-n`. Words that are not
/// options and long options that are not known are ignored.
///
/// @return True when the whole command line was accepted. False at the first unknown letter and at
///         a value option without a value; what was set before stays set. Prints nothing.
bool processArgs(int argc, char** argv);

/// Removes one pair of double quotes around @p s, in place. Leaves @p s alone when it does not
/// both begin and end with one, or is a single quote character.
void trimQuotes(QString& s);

#endif // APP_OPTIONS_H
