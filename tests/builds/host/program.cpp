#include <cstdio>

int CountTimedOut();

int main() {
  printf("%d\n", CountTimedOut());
}
