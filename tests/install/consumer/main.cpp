#include <corvane/smc/smc.h>

int main() {
  char text[5];
  SMCConvertNumberToString(text, SMCConvertStringToNumber("FNum", 4, 16));
  return text[0] == 'F' && text[3] == 'm' ? 0 : 1;
}
