#include "JSONValue.h"
