/* A library with the driver library's five exports, less the one numbered LEFT_OUT (1 to 5; 6: all
 * left out). They do nothing: only their presence is tested. */
#define EXPORT __declspec(dllexport)
#define HAS(number) (LEFT_OUT != (number) && LEFT_OUT != 6)

#if HAS(1)
EXPORT int WinDivertOpen(void) { return 1; }
#endif
#if HAS(2)
EXPORT int WinDivertRecv(void) { return 2; }
#endif
#if HAS(3)
EXPORT int WinDivertSend(void) { return 3; }
#endif
#if HAS(4)
EXPORT int WinDivertHelperCalcChecksums(void) { return 4; }
#endif
#if HAS(5)
EXPORT int WinDivertClose(void) { return 5; }
#endif
EXPORT int Unrelated(void) { return 0; }
