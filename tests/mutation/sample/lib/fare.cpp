#include "lib/fare.h"

#include <cstdio>

int fare(int stops) {
  if (stops > 10) return 5;
  return 3;
}

int counted(int most) {
  int count = 0;
  while (count < most) count = count + 1;
  return count;
}

int untested() {
  const int sizes[1] = {4};
  return sizes[0];
}

void careful(bool sure) {
  if (sure) std::remove(VICTIM);
}
