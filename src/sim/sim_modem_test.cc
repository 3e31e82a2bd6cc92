#include "sim/sim_modem.h"

#include "line_fixture.h"
#include "sim/centre_factory.h"

namespace kw::sim {

// A dial is answered 300 ms later with CONNECT and the carrier. In data mode even "ATH" is data,
// and the centre's hang-up comes after its last bytes. Closing the port hangs up whatever the
// modem was doing: nothing of the old call comes later, and the centre starts afresh.
TEST(SimModemTest, PassesDataUntilTheCentreHangsUpAndForgetsTheCallAtTheClose) {
  SimModem modem{ModemScenario{}};
  modem.SetCentre(MakeCentre("tap", {{"drop", "probe:1"}}));  // drops after the first prompt
  test::RecordingLine line;
  modem.OnBytes(0, "ATDT5\r", line);
  modem.OnTimer(300, line);
  modem.OnBytes(400, "ATH\r", line);
  modem.OnTimer(450, line);
  modem.OnBytes(700, "ATZ\r", line);
  modem.OnClose(800, line);
  modem.OnBytes(1000, "ATDT5\r", line);
  modem.OnTimer(1300, line);
  modem.OnBytes(1400, "\r", line);
  modem.OnClose(1400, line);  // before the centre's hang-up
  EXPECT_EQ(modem.NextTimerMs(), kNoTimer);
  modem.OnBytes(5000, "AT\r", line);
  EXPECT_EQ(line.log,
            "300:\r\nCONNECT 9600\r\n[CD]450:ID=450:\r\nNO CARRIER\r\n[no CD]700:\r\nOK\r\n"
            "1300:\r\nCONNECT 9600\r\n[CD]1450:ID=[no CD]5000:\r\nOK\r\n");
}

}  // namespace kw::sim
