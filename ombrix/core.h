#pragma once

/// Everything of ombrix::core.
#include <ombrix/core/color/color.h>
#include <ombrix/core/points/fields.h>
#include <ombrix/core/points/point.h>
#include <ombrix/core/points/point_cloud.h>
#include <ombrix/core/types.h>
