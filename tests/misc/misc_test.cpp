#include <gtest/gtest.h>

#include "torvane.h"
