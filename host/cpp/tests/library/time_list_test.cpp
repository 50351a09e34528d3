#include "orvo/timing/detail/time_list.hpp"

#include "library/time_list_cases.hpp"
