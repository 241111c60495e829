#include "statistics/age_classes.h"

bool DichtAltersklasse::find(int32_t value, int& index) const
{
    if (clip && value > high) value = high;
    if (value < low || value > high) return false;
    index = value - low;
    return true;
}

bool LueckAltersklasse::find(int32_t value, int& index) const
{
    for (int i = 0; i < count(); ++i) {
        if (value >= bounds[i] && value < bounds[i + 1]) {
            index = i;
            return true;
        }
    }
    return false;
}
