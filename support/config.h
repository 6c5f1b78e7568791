#ifndef PELCLOUD_SUPPORT_CONFIG_H
#define PELCLOUD_SUPPORT_CONFIG_H

#include <string>

/**
 * Where the suite is installed, and what its symbolic file names stand for. Nothing is remembered
 * between calls, for the suite may be reinstalled while the process runs. No errors are reported;
 * both functions may be called from any thread.
 */

/**
 * The installation directory, with a "/" at its end: the key PATH in the section PELORIN of
 * /etc/pelorin.conf or, without that, the directory of the running program. Empty when neither is
 * known.
 */
[[nodiscard]] std::string GetPelorinPath();

/**
 * The full name of the file that `name` stands for. A name that is one of the suite's macros, such
 * as "//LOGEVTFILE//", becomes a file in the directory of one UPS or in the installation
 * directory; a name that begins with "//BASEDIR//" or "//UPSCONFIGDIR//" goes on below the
 * installation directory or that of the UPS; any other name is returned as it is.
 *
 * `base` is the number of a UPS, whose directory lies in the installation directory, or else the
 * directory itself, used as it is: it should end in "/". When `name` or `base` is null, the result
 * is empty.
 */
[[nodiscard]] std::string ParseMacroFileName(const char *name, const char *base);

/**
 * Makes GetPelorinPath() give this directory from now on, for a program that is told where the
 * suite is installed; an empty text takes that back. Not while another thread asks.
 */
void SetPelorinPath(const std::string &path);

namespace Internal {

/** GetPelorinPath() as it would be if `configFile` were /etc/pelorin.conf. For tests. */
[[nodiscard]] std::string PelorinPathFrom(const char *configFile);

} // namespace Internal

#endif
