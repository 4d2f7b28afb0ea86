// The row-fused downscaler built for one instruction set (flags in CMakeLists.txt).
#define PD_FUSED_NAME pdFusedBase
#include "PerceptualDownscaleRows.h"
