#include "sending/sms_sender.h"

#include "line_fixture.h"

namespace kw {

const std::string kDial = "ATDT0612345\r";
/// The dial, then a TAP send that the centre accepts at once, then the hang-up.
const std::string kSent = kDial + "\r\x1bPG1pw\r\00212345\rabc\r\003244\rATH";
const std::string kCables = "  Please make sure that all your cables are properly connected.";
const std::string kTimedOut = "[523] Connection timed out. No response from Modem.";
const std::string kCantOpen =
    "[520] Error opening com port. Make sure no other application is using this port.";
const std::string kHeld = " (COM1: in use by another run)";
const std::string kCenterFailed =
    "[520] Error connecting to sms center. Make sure SmsCenterAddress is right and no other run "
    "is using it.";

// A dial the modem refuses or leaves unanswered ends before the link is up: nothing follows the
// dial, not even a hang-up. Time-outs count whole seconds of the clock, so they end at the next
// whole second past the limit.
TEST(SmsSenderTest, DialsOrConnectsAndReportsEachFailureByItsCause) {
  const std::string at = "SmsCenterAddress=127.0.0.1:2775;";
  const std::string refused = " (127.0.0.1:2775: refused by the test)";
  const test::RunCase cases[] = {
      {"result=BUSY", "[526] The number is busy. Please try again later.", 300, kDial},
      {"result=NO DIALTONE", "[526] There is no dial tone." + kCables, 300, kDial},
      {"result=NO CARRIER", "[524] There is no carrier." + kCables, 300, kDial},
      {"result=ERROR", "[525] An Input Error occurred. (ERROR)", 300, kDial},
      {"noanswer;start=1000500", kTimedOut, 20500, kDial},
      {"noanswer;ConnectionTimeout=0", kTimedOut, 1000, kDial},
      {"noanswer;ConnectionTimeout=-5", kTimedOut, 0, kDial},
      {"result=connect 9600;ConnectionTimeout=3", kTimedOut, 4000, kDial},
      {"result=RINGING CONNECT;ConnectionTimeout=2", kTimedOut, 3000, kDial},
      {"noanswer;stop=5000", test::kStopped, 5000, kDial},
      // The carrier may come up to 30 s after CONNECT; the wait sleeps a second at a time.
      {"", "ok", 3000, kSent},
      {"late=5000", "ok", 8000, kSent},
      {"late=-1", "[580] Unable to connect modem.", 31300, kDial},
      {"late=-1;stop=9500", test::kStopped, 9500, kDial + "ATH"},
      {"lfcr;result=CONNECT", "ok", 3000, kSent},
      {"ring=2;chunks=2;result=CONNECT 2400", "ok", 3000, kSent},
      {"result=CONNECT NO CARRIER", "ok", 3000, kSent},
      // Refused before the port is opened.
      {"to=call me", "[581] No recipient specified.", 0, ""},
      {"DialPrefix=(;SmsCenterNumber=1-2", "[582] There is no smsc provider specified.", 0, ""},
      {"DialPrefix=0,00;SmsCenterNumber=;openfails", kCantOpen, 0, ""},
      // A port that another holds is tried again, four times a second, until the wait is over;
      // it lasts at least the seconds asked for, and a request to stop ends it.
      {"busy=1600;wait=2", "ok", 5000, kSent},
      {"busy=9000;wait=2", kCantOpen + kHeld, 3000, ""},
      {"busy=9000", kCantOpen + kHeld, 0, ""},
      {"busy=9000;wait=5;stop=1100", test::kStopped, 1100, ""},
      {"ConnectionTimeout=soon", "[13] Kestrawind: Type mismatch", 0, ""},
      // A centre on the network: the connection stands for the dial and the carrier, so nothing
      // but the protocol's bytes goes out; its failures end the run at once, or when
      // ConnectionTimeout is over.
      {at, "ok", 3000, "\r\x1bPG1pw\r\00212345\rabc\r\003244\r"},
      {at + "Protocol=UCP", "ok", 3000, "\00201/00036/O/01/12345/678//3/616263/C0\003"},
      // The centre closes the connection: the line is lost.
      {at + "drop=login:1", "[536] Modem hung up unexpectedly while logging in.", 2000,
       "\r\x1bPG1pw\r"},
      {at + "openfails=refused",
       "[524] The sms center refused the connection or can't be reached." + refused, 0, ""},
      {at + "openfails=timeout;ConnectionTimeout=7",
       "[523] Connection timed out. No response from sms center." + refused, 7000, ""},
      {at + "openfails=timeout;ConnectionTimeout=-1",
       "[523] Connection timed out. No response from sms center." + refused, 0, ""},
      {at + "openfails=name", kCenterFailed + refused, 0, ""},
      {at + "openfails", kCenterFailed, 0, ""},
      {"SmsCenterAddress=127.0.0.1", kCenterFailed + " (127.0.0.1: the port number is missing)", 0,
       ""},
      {at + "ConnectionTimeout=soon", "[13] Kestrawind: Type mismatch", 0, ""},
  };
  for (const test::RunCase& c : cases) test::ExpectRun(c);
}

}  // namespace kw
