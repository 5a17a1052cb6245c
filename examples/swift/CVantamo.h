#pragma once

#include <vantamo/vantamo_c.h>
