#pragma once

/// Everything of ombrix::io.
#include <ombrix/io/error.h>
#include <ombrix/io/read_points.h>
#include <ombrix/io/write_points.h>
