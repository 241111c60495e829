#include "household/household_classes.h"

LueckAltersklasse AK10({0, 10, 20});
LueckAltersklasse AKL3({0, 35, 65, 1000});
LueckAltersklasse AKJ({0, 35, 1000});
LueckAltersklasse AKA({0, 65, 1000});
DichtAltersklasse AK0_17(0, 17, false);
DichtAltersklasse AK15_17(15, 17, false);
DichtAltersklasse AK15_44(15, 44, false);
DichtAltersklasse AK15_99(15, 99, true);
DichtAltersklasse AK0_99(0, 99, true);
DichtAltersklasse AK1_2(1, 2, false);
DichtAltersklasse AK1_5(1, 5, true);
DichtAltersklasse AK1_8(1, 8, false);
DichtAltersklasse AK1_7(1, 7, false);

G2T g2t;
