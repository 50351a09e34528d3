// The same list on a system whose memory cannot be moved: pages are copied. It gets a name of its own, or a program
// that holds both would have two classes of one name.
#include <sys/mman.h>
#undef MREMAP_MAYMOVE
#define TimeList TimeListThatCopies

#include "orvo/timing/detail/time_list.hpp"

#define TimeListCases TimeListCasesOfCopies
#include "library/time_list_cases.hpp"
