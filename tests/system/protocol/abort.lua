-- A message may end at each stage; the next one of the session is whole, and so is that of another session.
dofile(common)

run(function()
  local other = open(6, ALL_ACTIONS, ALL_STEPS)
  introduce(other)
  stages(other, 1, 4)

  local conn = open(6, ALL_ACTIONS, NO_STEPS)
  introduce(conn)
  for last = 0, #STAGES - 1 do
    stages(conn, 1, last)
    check(mt.abort(conn), "abort")
    message(conn)
  end
  mt.disconnect(conn)

  -- Without a word, too.
  for last = 0, #STAGES - 1 do
    local gone = open(6, ALL_ACTIONS, NO_STEPS)
    introduce(gone)
    stages(gone, 1, last)
    mt.disconnect(gone, false)
  end

  stages(other, 5, #STAGES)
  expect_status(other, "SIX")
  mt.disconnect(other)
end)
