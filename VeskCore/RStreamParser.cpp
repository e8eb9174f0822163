#include "RStreamParser.h"
