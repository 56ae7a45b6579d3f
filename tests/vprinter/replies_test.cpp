// What the printer answers: the immediate queries, status and reset, the
// diagnostic and battery reports, and the RFID tag's data.

#include "printer_rig.hpp"

using namespace orvante;
using namespace orvante::vprinter;
using namespace orvante::vprinter::testing;

namespace {

TEST(Replies, QueriesAnswerWithTheirBytes) {
  Options options;
  options.name = "VP TEST";
  options.memoryBytes = 1000;
  PrinterRig rig(options);
  EXPECT_EQ(rig.feed("~!T"), "VP TEST\r");
  EXPECT_EQ(rig.feed("~!I"), "437\r");
  EXPECT_EQ(rig.feed("CODEPAGE 1252\r\n~!I"), "1252\r");
  EXPECT_EQ(rig.feed("~!@"), "0.0\r");
  EXPECT_EQ(rig.feed("~!A"), "1000\r");
  EXPECT_EQ(rig.feed("~!F"), "\x1a");
  rig.feed("DOWNLOAD F,\"LOGO.BMP\",200,");
  rig.feed(Bytes(200, 7));
  rig.feed("DOWNLOAD \"A.TTF\",100,");
  rig.feed(Bytes(100, 9));
  EXPECT_EQ(rig.feed("~!A"), "700\r");
  EXPECT_EQ(rig.feed("~!F"), "A.TTF\rLOGO.BMP\r\x1a");
  rig.feed("KILL \"A.TTF\"\r\n");
  EXPECT_EQ(rig.feed("~!F~!A"), "LOGO.BMP\r\x1a" "800\r");
}

TEST(Replies, MileageCountsPrintedAndFedLabels) {
  Options options;
  options.maxCopiesPerPrint = 10000;
  options.onPrinted = [](const PrintedLabel&) { return std::string("-"); };
  PrinterRig rig(options);
  // 10000 labels of 99 mm and a 1 mm gap: one kilometre.
  rig.feed("SIZE 5 mm, 99 mm\r\nGAP 1 mm, 0 mm\r\nPRINT 100,100\r\n");
  EXPECT_EQ(rig.feed("~!@"), "1.0\r");
  for (int i = 0; i < 1000; ++i) rig.feed("FORMFEED\r\n");
  EXPECT_EQ(rig.feed("~!@"), "1.1\r");
}

TEST(Replies, StatusByteAndResetAnswerAtOnce) {
  Options options;
  options.status = 0x04;
  PrinterRig rig(options);
  EXPECT_EQ(rig.feed("\x1b!?"), std::string(1, '\x04'));
  rig.engine.setStatus(0x00);
  EXPECT_EQ(rig.feed(std::string("\x1b!?", 3)), std::string(1, '\0'));
  // Reset: label state back to power-on (4 x 6 inches), stored files kept.
  rig.feed("SIZE 10 mm, 10 mm\r\nDIRECTION 1\r\nDOWNLOAD \"K\",1,x\r\nBAR 0,0,8,8\r\n\x1b!R");
  const PrintedLabel label = rig.printOne();
  EXPECT_EQ(label.width(), 812);
  EXPECT_EQ(label.height(), 1218);
  EXPECT_EQ(label.printedIn(0, 0, 812, 1218), 0u);
  EXPECT_EQ(rig.feed("~!F"), "K\r\x1a");
}

TEST(Replies, DiagnosticsAnswerInBraces) {
  PrinterRig rig;
  EXPECT_EQ(rig.feed("DIAGNOSTIC INTERFACE NET\r\n\r\n"), "{INTERFACE|NET}\r\n");
  EXPECT_EQ(rig.feed("DIAGNOSTIC INTERFACE COM\r\n"), "{INTERFACE|COM}\r\n");
  EXPECT_EQ(rig.feed("DIAGNOSTIC REPORT SMBVOLTAGE\r\n"), "{SMBVOLTAGE|8200}\r\n");
  EXPECT_EQ(rig.feed("DIAGNOSTIC REPORT SMBREMCAPCITY\r\n"), "{SMBREMCAPCITY|2600}\r\n");
  rig.feed("PRINT 40\r\n");
  EXPECT_EQ(rig.feed("DIAGNOSTIC REPORT SMBREMCAPCITY\r\n"), "{SMBREMCAPCITY|2590}\r\n");
  EXPECT_EQ(rig.feed("DIAGNOSTIC REPORT SMBNONE\r\n"), "");
  EXPECT_NE(rig.last().find("\"outcome\":\"warning\""), std::string::npos);
}

TEST(Replies, TheEmptyLineAfterATagCommandAnswersTheTag) {
  PrinterRig rig;
  EXPECT_EQ(rig.feed("\r\n"), "");
  EXPECT_EQ(rig.feed("RFIDDETECT\r\n\r\n"), "E28011700000020C0F8A1B2C\r\n");
  EXPECT_EQ(rig.feed("\r\n"), "");
  EXPECT_EQ(rig.feed("RFID WRITE, 1, 0, 4, 4, 3, \"CAFEF00D\"\r\n"
                     "RFID READ, 1, 0, 2, 6, 3, \"\"\r\n\r\n"),
            "0000CAFEF00D\r\n");
  EXPECT_EQ(rig.feed("RFID READ, 1, 0, 60, 8, 3, \"\"\r\n"), "");
  EXPECT_TRUE(rig.journaled("read past the end of bank 3"));
}

}  // namespace
