#!/bin/sh
# Writes vehicle.log, the capture the README decodes: three seconds of the
# demo vehicle's CAN bus while it reverses out of a parking space, made by
# q9db simulate from vehicle.dbc, with the counters and the CRC that
# restbus.lua writes. The output is the same on every run.
# Usage: make_capture.sh [Q9DB [OUTPUT]]
#   Q9DB    the tool (default: build/bin/q9db beside this folder)
#   OUTPUT  the file to write (default: vehicle.log in this folder)
# From a build folder: cmake --build build --target q9db_example_capture
set -eu
here=$(cd "$(dirname "$0")" && pwd)
q9db=${1:-$here/../build/bin/q9db}
output=${2:-$here/vehicle.log}
"$q9db" simulate "$here/vehicle.dbc" --duration 3 --script "$here/restbus.lua" \
  --set EngineStatus.EngineSpeed=1150.25 \
  --set EngineStatus.EngineTorque=-12.5 \
  --set EngineStatus.ThrottlePos=8.2 \
  --set GearboxStatus.GearPos=Reverse \
  --set "GearboxStatus.CurrentGear=Reverse gear" \
  --set WheelSpeeds.WheelSpeedFL=4.52 \
  --set WheelSpeeds.WheelSpeedFR=4.61 \
  --set WheelSpeeds.WheelSpeedRL=4.48 \
  --set WheelSpeeds.WheelSpeedRR=4.57 \
  --set BrakeStatus.BrakePressure=3.5 \
  --set BrakeStatus.YawRate=-1.25 \
  --set BrakeStatus.LongAccel=-0.35 \
  --set SteeringStatus.SteeringAngle=-35.5 \
  --set SteeringStatus.SteeringRate=12 \
  --set BodyStatus.OutsideTemp=-7.5 \
  --set BodyDiag.WindowFL=40 \
  --set ClimateRequest.TargetTemp=21.5 \
  --set ClimateRequest.FanLevel=3 \
  --set ClimateRequest.AirCon=On \
  --set BatteryStatus.BatteryVoltage=13.8 \
  --set BatteryStatus.BatteryCurrent=-18.4 \
  --set BatteryStatus.ChargeState=Discharging \
  --set ObjectList.ObjectCount=1 \
  --set ObjectList.Object1Distance=2.35 \
  --set ObjectList.Object1RelSpeed=-1.2 \
  --set ObjectList.Object1Class=Pedestrian \
  --set ObjectList.LaneCurvature=0.0125 \
  >"$output"
