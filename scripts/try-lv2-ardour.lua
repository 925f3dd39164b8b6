-- Makes an Ardour session in the folder $SESSION: noise into Brisel Live, wet only, Size swept from 300 ms
-- to 10 ms and back between 2 s and 10 s, and a range of 12 s. For ardour7-lua.
local rate = 48000
local ports = { size = 9, mix = 13 }
local function at(seconds) return Temporal.timepos_t(math.floor(seconds * rate)) end

local backend = AudioEngine:set_backend("None (Dummy)", "", "")
session = create_session(os.getenv("SESSION"), "sweep", rate)
local tracks = session:new_audio_track(2, 2, nil, 1, "noise", -1, ARDOUR.TrackMode.Normal, true)
local track = tracks:front()
local noise = ARDOUR.LuaAPI.new_luaproc(session, "ACE Noise")
local uri = "https://tamrockaudio.com/lv2/brisel-live"
local reverb = ARDOUR.LuaAPI.new_plugin(session, uri, ARDOUR.PluginType.LV2, "")
if reverb:isnil() then
  print("Ardour does not find " .. uri)
  os.exit(1)
end
track:add_processor_by_index(noise, -1, nil, true)
track:add_processor_by_index(reverb, -1, nil, true)

local function control(port)
  local parameter = Evoral.Parameter(ARDOUR.AutomationType.PluginAutomation, 0, port)
  return reverb:to_automatable():automation_control(parameter, true)
end
control(ports.mix):set_value(100, PBD.GroupControlDisposition.NoGroup)
local size = control(ports.size)
for step = 0, 100 do
  local x = step / 100
  size:alist():list():add(at(2 + 8 * x), 10 * 30 ^ math.abs(2 * x - 1), false, true)
end
size:set_automation_state(ARDOUR.AutoState.Play)
session:locations():add_range(at(0), at(12))
session:save_state("", false, false, false, false, false)
close_session()
quit()
