#pragma once
// The commands of the program. Each answers with the exit code: 0 done, 1 faults in the data.

#include "arguments.h"

namespace vxdata {

int run_dict(int argc, char** argv);
int run_undict(int argc, char** argv);
int run_msg(int argc, char** argv);
int run_unmsg(int argc, char** argv);
int run_check(int argc, char** argv);
int run_report(int argc, char** argv);
int run_embed(int argc, char** argv);
int run_keywords(int argc, char** argv);
int run_confidentiality(int argc, char** argv);

}  // namespace vxdata
