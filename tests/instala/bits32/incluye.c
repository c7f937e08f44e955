#include <ivrexa.h>
