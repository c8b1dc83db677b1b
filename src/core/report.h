// The fixed report blocks of a solve: the header and the lines of the progress table,
// the closing report with its certificate or error metrics, and the settings dump. All
// of it goes out through printTo with the settings' stream_override and output_stream.
#pragma once

#include "records/records.h"
#include "reporting/timing.h"

namespace korvex {

struct Work;

// Column heads of the progress table; the blanks belong to the texts.
extern const char* const HEAD_COLUMNS[9];

// Optional warm-start line, a rule, the column heads (the FPR column only for the Marlet
// iteration) and the rule again.
void printHeader(const Work* work);

// One row of the table for iteration: the residuals, objectives, kap/tau, the FPR for the
// Marlet iteration, and the seconds since timer started.
void printProgressLine(const Work* work, int iteration, const Residuals* residuals, Timer* timer);

// The closing report: status, timing, the linear-system and cone summaries, then the
// certificate of infeasibility or unboundedness, or the error metrics of any other end.
// solution and info are final, in the caller's units.
void printFooter(const Data* data, const Cone* cone, const Solution* solution, Work* work, Info* info);

// Every option but verbose, progress_capacity, the Broyden extras, record_progress and
// the streams, in one print.
void printSettingsDump(const Settings* settings);

}  // namespace korvex
