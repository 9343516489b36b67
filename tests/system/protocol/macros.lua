-- Without a queue id the header says so; with one of strange bytes it stays one line of one field.
dofile(common)

run(function()
  local conn = open(6, ALL_ACTIONS, ALL_STEPS)
  introduce(conn)
  message(conn)
  expect(string.find(mt.getheader(conn, "X-Corvane-Status", 0), "id=none", 1, true), "an id from nowhere")

  STAGES[1](conn)
  mt.macro(conn, SMFIC_RCPT, "i", "Q1;rules=NONE\r\nX-Forged: 1%s\"")
  stages(conn, 2, #STAGES)
  expect_status(conn, "SIX")
  local value = mt.getheader(conn, "X-Corvane-Status", 0)
  expect(not string.find(value, "\nX-Forged", 1, true), "a line of its own: " .. value)
  expect(not string.find(value, ";rules=NONE", 1, true), "a field of its own: " .. value)
  mt.disconnect(conn)
end)
