#include "ui/TextSize.h"

#include <algorithm>

namespace TextSize {

double smaller(double size)
{
    return std::clamp(size - 1, minimum, maximum);
}

double bigger(double size)
{
    return std::clamp(size + 1, minimum, maximum);
}

} // namespace TextSize
