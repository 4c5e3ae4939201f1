// Helpers of the platform tests: the ones every test program shares.
#pragma once

#include "test_env.h"
